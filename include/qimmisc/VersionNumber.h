// Dotted version numbers ("4.2.1") as sequences of integers, parsed from and
// printed to wide text and ordered component by component.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

/// A version as its components, most significant first. The order is the
/// lexicographic order of the component sequences with no padding: trailing
/// zeros count, so 1.2 < 1.2.0 and the two are unequal.
///
/// Parsing never fails. Each piece between dots is read as a base-10 long
/// (leading white space and a sign accepted) and contributes whatever that
/// read leaves: the number its digits begin with ("12a" gives 12), or 0 for
/// text with no leading number, non-ASCII digits included. Empty pieces (two
/// dots in a row, a leading or trailing dot) give a 0 component; empty text
/// gives no components at all, which prints as "". A value beyond the
/// 32-bit range saturates at its limit on every platform. Wide text that is
/// not valid UTF-16/UTF-32 (a lone surrogate) converts to nothing, so its
/// piece gives 0 (after the conversion's ERROR line).
class QIMMISC_API VersionNumber {
 public:
  /// One component, 0.
  VersionNumber();

  /// Parses `text` as set() does.
  explicit VersionNumber(const std::wstring& text);

  /// Replaces every component with those read from `text`, writing
  /// "numTxt=" + text (as UTF-8; nothing after "=" for text that does not
  /// convert) on the "VERSION" channel first.
  void set(const std::wstring& text);

  /// The components in decimal joined by "."; "" for no components. Parsing
  /// the result gives the same version back.
  std::wstring toString() const;

  /// The components, most significant first.
  const std::vector<std::int32_t>& components() const { return components_; }

  /// Same number of components and each equal.
  bool operator==(const VersionNumber& other) const;
  bool operator!=(const VersionNumber& other) const;

  /// The first differing component decides; otherwise the shorter version
  /// is the smaller.
  bool operator<(const VersionNumber& other) const;
  bool operator<=(const VersionNumber& other) const;
  bool operator>(const VersionNumber& other) const;
  bool operator>=(const VersionNumber& other) const;

 private:
  std::vector<std::int32_t> components_;
};

}  // namespace QIM
