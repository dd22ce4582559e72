// The client's administrator-provisioned settings: several hundred typed
// values read once from the enciphered file "data\VELDer.dat" below the
// installation folder and offered through one read-only accessor each.
//
// Every setting is one row of VelderIniKeys.def, which gives its key, kind,
// default, accessor name and the rule applied when it is read; the members
// and accessors below are generated from that table.
#pragma once

#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

class IConfigurationFile;

namespace Data {

/// The installation folder + "data\VELDer.dat", with the platform's
/// separator ("data/VELDer.dat" on Linux).
QIMMISC_API std::wstring getVELDerIniPath();

/// A "low,high" setting.
struct IntRange {
  int low;
  int high;
};

inline bool operator==(const IntRange& a, const IntRange& b) {
  return a.low == b.low && a.high == b.high;
}

/// One entry of "sipResendConfig": how many times requests of `method` are
/// sent again when their transaction fails.
struct SipResendEntry {
  std::wstring method;
  int count;
};

inline bool operator==(const SipResendEntry& a, const SipResendEntry& b) {
  return a.method == b.method && a.count == b.count;
}

/// The main settings. One process-wide instance, made and read by the first
/// QIMMiscApi::init and destroyed by the last exit; tests and tools make
/// their own objects as well.
///
/// Values change only in the read operations. The library reads once at
/// start-up, before other threads look at the settings; from then on the
/// accessors are plain member reads, safe from any number of threads
/// without a lock. A later read must not overlap with readers.
class QIMMISC_API VelderIni {
 public:
  /// Every setting at its default; secure-build rules as isBuildSecure().
  VelderIni();
  /// Every setting at its default, with the secure-build rules applied or
  /// not whatever the build is (tools and tests preview either kind).
  explicit VelderIni(bool secureBuild);
  VelderIni(const VelderIni&) = delete;
  VelderIni& operator=(const VelderIni&) = delete;

  /// The process-wide instance; null, after the assertion line "VelderIni
  /// instance not initialized!", before the first init or after the last
  /// exit.
  static VelderIni* instance();

  /// Reads getVELDerIniPath(); what start-up calls.
  void readVelderIniFile();
  /// Reads every setting from the enciphered file at `path`. A missing file
  /// (its "File not found" throw is logged by the file class) leaves every
  /// setting at its default.
  void readVelderIniFile(const std::wstring& path);
  /// Resets every setting to its default, then reads each key from the
  /// section "VELDer" of `file`, in table order, applying the table's rules.
  /// Leaves fileFound() and fileDamaged() as they were.
  void readFrom(IConfigurationFile& file);

  /// Whether the last readVelderIniFile found its file.
  bool fileFound() const { return fileFound_; }
  /// Whether the last readVelderIniFile found its file damaged (an invalid
  /// padding count), so that every setting kept its default.
  bool fileDamaged() const { return fileDamaged_; }

  /// One setting as text: flags "1"/"0" (the key's own value, also for
  /// NotFlag rows), ranges "low,high", lists joined by their delimiter. The
  /// default is this object's: 0 for the plain SIP ports of a secure build.
  struct SettingValue {
    std::string key;
    std::wstring value;
    std::wstring defaultValue;
  };
  /// Every setting, in reading order, with its effective value and default.
  std::vector<SettingValue> settings() const;

  /// The lines the last read logged (ERROR channel) for values it rejected
  /// or clamped, in order.
  const std::vector<std::string>& readMessages() const { return readMessages_; }

  // One accessor per row of VelderIniKeys.def, returning the value of the
  // last read (or the default): int for Int, bool for Flag and NotFlag,
  // const std::wstring& for Str, const std::vector<std::wstring>& for List,
  // IntRange for Range.
#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra) \
  QIM_VELDERINI_RESULT_##kind accessor() const { return QIM_VELDERINI_VALUE_##kind(key##_); }
#define QIM_VELDERINI_RESULT_Int int
#define QIM_VELDERINI_RESULT_Flag bool
#define QIM_VELDERINI_RESULT_NotFlag bool
#define QIM_VELDERINI_RESULT_Str const std::wstring&
#define QIM_VELDERINI_RESULT_List const std::vector<std::wstring>&
#define QIM_VELDERINI_RESULT_Range IntRange
#define QIM_VELDERINI_VALUE_Int(member) member
#define QIM_VELDERINI_VALUE_Flag(member) member
#define QIM_VELDERINI_VALUE_NotFlag(member) !member
#define QIM_VELDERINI_VALUE_Str(member) member
#define QIM_VELDERINI_VALUE_List(member) member
#define QIM_VELDERINI_VALUE_Range(member) member
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
#undef QIM_VELDERINI_RESULT_Int
#undef QIM_VELDERINI_RESULT_Flag
#undef QIM_VELDERINI_RESULT_NotFlag
#undef QIM_VELDERINI_RESULT_Str
#undef QIM_VELDERINI_RESULT_List
#undef QIM_VELDERINI_RESULT_Range
#undef QIM_VELDERINI_VALUE_Int
#undef QIM_VELDERINI_VALUE_Flag
#undef QIM_VELDERINI_VALUE_NotFlag
#undef QIM_VELDERINI_VALUE_Str
#undef QIM_VELDERINI_VALUE_List
#undef QIM_VELDERINI_VALUE_Range

  /// The eleven ports just above the RTP range, high + 1 to high + 11, kept
  /// for the client's sockets beside the media streams (with the default
  /// ranges they are the collaboration ports).
  IntRange getPortsAboveRTPRange() const;

  /// "meetMeNumbersCount" brought into 1..kMaxMeetMeNumbers.
  int meetMeNumbersCountNormalized() const;
  static constexpr int kMaxMeetMeNumbers = 10;

  /// "sipResendConfig" parsed when read: entries "METHOD:count" separated
  /// by ",", each trimmed, in the order written; an entry without ":", with
  /// an empty method or a count that is not a whole number from 0 up is
  /// skipped with the line "Invalid sipResendConfig entry: " + entry.
  const std::vector<SipResendEntry>& getSipResendConfig() const { return sipResend_; }

  /// Whether the secure-build rules apply to this object.
  bool secureBuild() const { return secureBuild_; }

 private:
  // The reading rules of each kind of row, in VelderIni.cpp.
  struct Reading;

  void resetToDefaults();
  // Logs `line` on ERROR and keeps it for readMessages().
  void report(const std::string& line);

  bool secureBuild_;
  bool fileFound_ = false;
  bool fileDamaged_ = false;
  std::vector<std::string> readMessages_;
  std::vector<SipResendEntry> sipResend_;

#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra) QIM_VELDERINI_STORED_##kind key##_;
#define QIM_VELDERINI_STORED_Int int
#define QIM_VELDERINI_STORED_Flag bool
#define QIM_VELDERINI_STORED_NotFlag bool
#define QIM_VELDERINI_STORED_Str std::wstring
#define QIM_VELDERINI_STORED_List std::vector<std::wstring>
#define QIM_VELDERINI_STORED_Range IntRange
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
#undef QIM_VELDERINI_STORED_Int
#undef QIM_VELDERINI_STORED_Flag
#undef QIM_VELDERINI_STORED_NotFlag
#undef QIM_VELDERINI_STORED_Str
#undef QIM_VELDERINI_STORED_List
#undef QIM_VELDERINI_STORED_Range
};

}  // namespace Data
}  // namespace QIM
