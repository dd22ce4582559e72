#include <cstdio>

#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"
#include "settings/WriteFailureNotifier.h"

namespace QIM::detail {

void showWriteFailure(const std::wstring& text, const std::wstring& title) {
  const std::string line = toUtf8(title) + ": " + toUtf8(text);
  QIM_ERROR(line);
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace QIM::detail
