#include "SettingsFiles.h"

#include "qimmisc/StringUtils.h"

namespace qimtool {

std::wstring widePath(const std::string& argument) {
#ifdef _WIN32
  return QIM::fromCurrentCodePage(argument);  // argv comes in the active code page
#else
  return QIM::fromUtf8(argument);
#endif
}

std::filesystem::path toPath(const std::wstring& path) {
#ifdef _WIN32
  return std::filesystem::path(path);
#else
  const std::string utf8 = QIM::toUtf8(path);
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
#endif
}

WriteFailureRecorder::WriteFailureRecorder()
    : previous_(QIM::setWriteFailureNotifier(
          [this](const std::wstring& text, const std::wstring&) {
            failed_ = true;
            text_ = QIM::toUtf8(text);
          })) {}

WriteFailureRecorder::~WriteFailureRecorder() { QIM::setWriteFailureNotifier(previous_); }

}  // namespace qimtool
