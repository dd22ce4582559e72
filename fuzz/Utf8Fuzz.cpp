// Fuzz target for the strict UTF-8 conversions, against a reference written
// from the table of well-formed byte sequences: fromUtf8 succeeds exactly on
// well-formed input and then gives it back unchanged through toUtf8; toUtf8
// succeeds exactly on valid code units (no lone surrogate, nothing above
// U+10FFFF) and then gives them back unchanged through fromUtf8.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzCheck.h"
#include "qimmisc/StringUtils.h"

namespace {

using QIM::fuzz::check;

unsigned byteAt(const std::string& bytes, std::size_t i) {
  return static_cast<unsigned char>(bytes[i]);
}

// Length of the well-formed sequence starting at bytes[i]; 0 when there is
// none. The second byte's range is what excludes overlong forms, encoded
// surrogates and values above U+10FFFF.
std::size_t sequenceLength(const std::string& bytes, std::size_t i) {
  const unsigned lead = byteAt(bytes, i);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (bytes.size() - i < length) return 0;
  if (byteAt(bytes, i + 1) < low || byteAt(bytes, i + 1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k) {
    if ((byteAt(bytes, i + k) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// The wide length of well-formed UTF-8, or npos when it is not well formed.
std::size_t wideLength(const std::string& bytes) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < bytes.size();) {
    const std::size_t length = sequenceLength(bytes, i);
    if (length == 0) return std::string::npos;
    // Beyond the BMP, UTF-16 needs a surrogate pair.
    units += (length == 4 && sizeof(wchar_t) == 2) ? 2 : 1;
    i += length;
  }
  return units;
}

bool isSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

bool validUnits(const std::wstring& wide) {
  for (std::size_t i = 0; i < wide.size(); ++i) {
    const auto unit = static_cast<std::uint32_t>(wide[i]);
    if (sizeof(wchar_t) == 4) {
      if (unit > 0x10FFFF || isSurrogate(unit)) return false;
    } else if (unit >= 0xD800 && unit <= 0xDBFF) {
      if (i + 1 == wide.size()) return false;
      const auto next = static_cast<std::uint32_t>(wide[i + 1]);
      if (next < 0xDC00 || next > 0xDFFF) return false;
      ++i;
    } else if (isSurrogate(unit)) {
      return false;
    }
  }
  return true;
}

void checkDecoding(const std::string& bytes) {
  const std::wstring wide = QIM::fromUtf8(bytes);
  const std::size_t expected = wideLength(bytes);
  if (expected == std::string::npos) {
    check(wide.empty(), "ill-formed UTF-8 is rejected");
    return;
  }
  check(wide.size() == expected, "well-formed UTF-8 decodes to its code points");
  check(validUnits(wide), "decoding gives valid code units");
  check(QIM::toUtf8(wide) == bytes, "a decode re-encodes to the same bytes");
}

void checkEncoding(const std::string& bytes) {
  // The input read as code units of the platform's width.
  std::wstring wide(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(wchar_t));
  const std::string utf8 = QIM::toUtf8(wide);
  if (!validUnits(wide)) {
    check(utf8.empty(), "invalid code units are rejected");
    return;
  }
  check(utf8.empty() == wide.empty(), "valid code units encode");
  check(wideLength(utf8) == wide.size(), "encoding gives well-formed UTF-8");
  check(QIM::fromUtf8(utf8) == wide, "an encode decodes to the same units");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  checkDecoding(bytes);
  checkEncoding(bytes);
  return 0;
}
