// Fuzz target for the resource file parser. Any bytes parse without a crash
// or a hang; every delivered entry is well-formed (a key with no line feed
// or '=' that does not start a comment, a non-empty value of valid code
// units); writing the entries back with every character outside printable
// ASCII (and the backslash) as a "\u" escape and parsing that gives the same
// entries; and a sink that refuses the k-th entry sees exactly k of them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FuzzCheck.h"
#include "qimmisc/JavaResourceParser.h"

namespace {

using QIM::fuzz::check;
using Entries = std::vector<std::pair<std::string, std::wstring>>;

class Recorder : public QIM::IJavaResourceSink {
 public:
  explicit Recorder(std::size_t accept) : accept_(accept) {}
  bool addResource(const std::string& key, const std::wstring& value) override {
    entries.emplace_back(key, value);
    return entries.size() < accept_;
  }
  Entries entries;

 private:
  std::size_t accept_;
};

std::pair<bool, Entries> parse(const std::string& text, std::size_t accept = SIZE_MAX) {
  std::istringstream in(text);
  Recorder sink(accept);
  const bool whole = QIM::parseJavaResources(in, sink);
  return {whole, std::move(sink.entries)};
}

void appendEscape(std::string& out, unsigned unit) {
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04x", unit);
  out += escape;
}

std::string serialize(const Entries& entries) {
  std::string text;
  for (const auto& [key, value] : entries) {
    text += key + "=";
    for (const wchar_t c : value) {
      const auto code = static_cast<std::uint32_t>(c);
      if (code > 0x20 && code < 0x7F && c != L'\\') {
        text += static_cast<char>(code);
      } else if (code > 0xFFFF) {
        appendEscape(text, 0xD800 + ((code - 0x10000) >> 10));
        appendEscape(text, 0xDC00 + ((code - 0x10000) & 0x3FF));
      } else {
        appendEscape(text, code);
      }
    }
    text += "\n";
  }
  return text;
}

void checkWellFormed(const Entries& entries) {
  for (const auto& [key, value] : entries) {
    check(key.find('\n') == std::string::npos, "a key holds no line feed");
    check(key.find('=') == std::string::npos, "a key holds no '='");
    check(key.empty() || key[0] != '#', "a key does not start a comment");
    check(!value.empty(), "a value is never empty");
    for (const wchar_t c : value) {
      check(static_cast<std::uint32_t>(c) <= 0x10FFFF, "a value holds code units only");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto [whole, entries] = parse(text);
  check(whole, "an accepting sink gets the whole file");
  checkWellFormed(entries);
  check(parse(serialize(entries)).second == entries, "written entries read back the same");
  const std::size_t refuseAt = size == 0 ? 1 : data[0] % 8 + 1;
  const auto [stopped, seen] = parse(text, refuseAt);
  check(stopped == (entries.size() < refuseAt), "the parse ends false exactly when refused");
  check(seen.size() == std::min(refuseAt, entries.size()), "nothing delivered after a refusal");
  return 0;
}
