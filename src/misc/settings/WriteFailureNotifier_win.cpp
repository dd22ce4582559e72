#include "platform/Win32.h"
#include "settings/WriteFailureNotifier.h"

namespace QIM::detail {

void showWriteFailure(const std::wstring& text, const std::wstring& title) {
  ::MessageBoxW(nullptr, text.c_str(), title.c_str(), MB_ICONERROR);  // type 16
}

}  // namespace QIM::detail
