// Fuzz target for version parsing and ordering.
//
// The input holds up to three versions separated by newlines, each byte one
// character (so digits and dots are common; 0xFF stands for a lone
// surrogate). Properties: printing and parsing again gives the same
// version, and the operators form one strict weak order on every pair and
// triple, agreeing with each other and with equality.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "qimmisc/VersionNumber.h"

namespace {

using QIM::VersionNumber;
using QIM::fuzz::check;

std::vector<VersionNumber> versionsOf(const std::uint8_t* data, std::size_t size) {
  std::vector<std::wstring> texts(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n' && texts.size() < 3) {
      texts.emplace_back();
    } else {
      texts.back() += data[i] == 0xFF ? wchar_t(0xD800) : wchar_t(data[i]);
    }
  }
  std::vector<VersionNumber> versions;
  for (const std::wstring& text : texts) versions.emplace_back(text);
  return versions;
}

void checkPair(const VersionNumber& a, const VersionNumber& b) {
  check(!(a < b && b < a), "antisymmetric");
  check((a == b) == (!(a < b) && !(b < a)), "incomparable means equal");
  check((a != b) == !(a == b), "!= negates ==");
  check((a > b) == (b < a), "> mirrors <");
  check((a <= b) == !(b < a), "<= is not greater");
  check((a >= b) == !(a < b), ">= is not smaller");
}

void checkTriple(const VersionNumber& a, const VersionNumber& b, const VersionNumber& c) {
  if (a < b && b < c) check(a < c, "transitive");
  if (a == b && b == c) check(a == c, "equality transitive");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  const std::vector<VersionNumber> versions = versionsOf(data, size);
  for (const VersionNumber& v : versions) {
    check(!(v < v), "irreflexive");
    check(VersionNumber(v.toString()) == v, "print then parse gives the version back");
    for (const VersionNumber& w : versions) {
      checkPair(v, w);
      for (const VersionNumber& x : versions) checkTriple(v, w, x);
    }
  }
  return 0;
}
