// Fuzz target for the settings text parser. Any text parses without a crash
// or a hang; names match without regard to ASCII case; and the written form
// settles after two round trips. The first ones may still change it: " [a=b"
// has the trimmed key "[a", which reads back as a header (whose name may trim
// to the empty one, written "[]", which reads back as no header); "k= "
// stores an empty value, which reads back as no entry.
#include <ace/Guard_T.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/StringUtils.h"

namespace {

using QIM::fuzz::check;

class ParsedText : public QIM::BufferConfigurationFile {
 public:
  explicit ParsedText(std::wstring text) {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    parse(std::move(text));
  }
};

std::wstring asciiUpper(std::wstring text) {
  for (wchar_t& c : text) {
    if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  std::string bytes(reinterpret_cast<const char*>(data), size);
  bytes.resize(bytes.find('\0') == std::string::npos ? size : bytes.find('\0'));
  const std::wstring text = QIM::fromUtf8(bytes);
  if (text.empty()) return 0;  // not UTF-8: the file loader rejects it whole

  ParsedText parsed(text);
  const std::wstring written = parsed.toText();
  for (const std::wstring& section : parsed.getSections()) {
    for (const auto& [key, value] : parsed.getSection(section)) {
      check(parsed.getString(asciiUpper(section), asciiUpper(key), L"") == value,
            "names match without regard to case");
      static_cast<void>(parsed.getInt(section, key, 0));
      static_cast<void>(parsed.getBool(section, key, false));
    }
  }
  check(parsed.toText() == written, "reads leave the written form alone");

  const std::wstring settled = ParsedText(ParsedText(written).toText()).toText();
  check(ParsedText(settled).toText() == settled, "the written form settles");
  return 0;
}
