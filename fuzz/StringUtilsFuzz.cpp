// Fuzz target for the string helpers that see untrusted text (SIP headers,
// configuration files, user input).
//
// Besides "no crash, no hang", each input checks properties that hold for
// any text: conversions round-trip whenever they succeed, tokens joined by
// the delimiter give back the text, trim leaves no white space at either end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "qimmisc/StringUtils.h"

namespace {

using QIM::fuzz::check;
using QIM::fuzz::unitsOf;

template <class S>
S join(const std::vector<S>& pieces, const S& delimiter) {
  S out;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (i) out += delimiter;
    out += pieces[i];
  }
  return out;
}

template <class S>
void checkTokenize(const S& text, const S& delimiter) {
  const auto pieces = QIM::tokenizeString(text, delimiter);
  if (text.empty() || delimiter.empty()) {
    check(pieces.empty(), "tokenize of empty text or delimiter gives nothing");
  } else {
    check(join(pieces, delimiter) == text, "tokens joined give the text back");
  }
}

template <class S>
void checkTrim(const S& text) {
  const S trimmed = QIM::trim(text);
  check(trimmed.size() <= text.size(), "trim never grows");
  check(text.find(trimmed) != S::npos, "trim returns a part of the text");
  S probe = trimmed;
  check(QIM::trim(probe) == trimmed, "trim is idempotent");
}

template <class S>
void checkCase(const S& text) {
  S lower = text;
  QIM::lowercase(lower);
  check(lower.size() == text.size(), "case folding keeps the length");
  check(QIM::equalsIgnoreCase(lower, text), "lowered text equals ignoring case");
  check(QIM::stringCompareIgnoreCase(lower, text, text.size()) == 0,
        "lowered text compares equal ignoring case");
}

void runOne(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);

  const std::wstring wide = QIM::fromUtf8(bytes);
  if (!wide.empty()) check(QIM::toUtf8(wide) == bytes, "UTF-8 round trip");

  const std::wstring units = unitsOf(bytes);
  const std::string utf8 = QIM::toUtf8(units);
  if (!utf8.empty()) check(QIM::fromUtf8(utf8) == units, "wide round trip");

  long value = 0;
  QIM::stringToLong(bytes, &value, 10);
  QIM::stringToLong(bytes, &value, 0);
  QIM::stringToLong(units, &value, 16);
  double real = 0;
  QIM::stringToDouble(bytes, &real);

  // The first byte picks a delimiter length, so multi-byte delimiters and
  // delimiters longer than the text both occur.
  if (!bytes.empty()) {
    const std::string rest = bytes.substr(1);
    const std::size_t delimLength =
        std::min<std::size_t>(static_cast<unsigned char>(bytes[0]) % 4, rest.size());
    checkTokenize(rest.substr(delimLength), rest.substr(0, delimLength));
    checkTokenize(QIM::fromUtf8(rest), QIM::fromUtf8(rest.substr(0, delimLength)));
  }
  checkTokenize(units, std::wstring(L","));

  checkTrim(bytes);
  checkTrim(units);
  checkCase(bytes);
  checkCase(units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  runOne(data, size);
  return 0;
}
