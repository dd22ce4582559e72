// The main settings: the key table (VelderIniKeys.def) expanded into the
// defaults, the reads in table order with the rules of each kind of row, and
// the listing of every setting as text.
#include "qimmisc/VelderIni.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include "data/InstalledFile.h"
#include "data/SettingsInstances.h"
#include "qimmisc/BuildInfo.h"
#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace Data {

namespace {

const wchar_t kSection[] = L"VELDer";
constexpr int kMaxReconnectDelay = 301000;  // milliseconds

std::unique_ptr<VelderIni> theInstance;

// The rules named in the table's last column.
enum class IntRule { Plain, NotInSecureBuild, ApiServerPort, AtLeastOne, ReconnectDelay };
enum class StrRule { Plain, SipResend };

// Keys are ASCII.
std::wstring widen(const char* key) { return std::wstring(key, key + std::strlen(key)); }

// A whole decimal number that fits an int, blanks around it allowed.
bool parseInt(const std::wstring& text, int& value) {
  const std::wstring number = trim(text);
  long parsed = 0;
  if (number.empty() || !stringToLong(number, &parsed, 10)) return false;
  if (parsed < INT_MIN || parsed > INT_MAX) return false;
  value = static_cast<int>(parsed);
  return true;
}

bool parseRange(const std::wstring& text, IntRange& range) {
  const std::vector<std::wstring> ends = tokenizeString(text, L",");
  IntRange parsed{};
  if (ends.size() != 2 || !parseInt(ends[0], parsed.low) || !parseInt(ends[1], parsed.high) ||
      parsed.high <= parsed.low) {
    return false;
  }
  range = parsed;
  return true;
}

std::vector<std::wstring> splitList(const std::wstring& text, const wchar_t* delimiter) {
  std::vector<std::wstring> items;
  for (const std::wstring& piece : tokenizeString(text, delimiter)) {
    std::wstring item = trim(piece);
    if (!item.empty()) items.push_back(std::move(item));
  }
  return items;
}

// Defaults of each kind from the table's text.
int intDefault(int def, IntRule rule, bool secureBuild) {
  return secureBuild && rule == IntRule::NotInSecureBuild ? 0 : def;
}

IntRange rangeDefault(const wchar_t* def) {
  IntRange range{};
  parseRange(def, range);  // the table's defaults are valid ranges
  return range;
}

// Values as text, for settings().
std::wstring flagText(bool on) { return on ? L"1" : L"0"; }

std::wstring listText(const std::vector<std::wstring>& items, const wchar_t* delimiter) {
  std::wstring text;
  for (const std::wstring& item : items) {
    if (!text.empty()) text += delimiter;
    text += item;
  }
  return text;
}

std::wstring rangeText(const IntRange& range) {
  return intToWString(range.low) + L"," + intToWString(range.high);
}

std::string rangeLogText(const IntRange& range) {
  return std::to_string(range.low) + "," + std::to_string(range.high);
}

}  // namespace

// One read per row; each kind with its rules. Rejections go to report().
struct VelderIni::Reading {
  VelderIni& ini;
  IConfigurationFile& file;

  int getInt(const char* key, int def) { return file.getInt(kSection, widen(key), def); }
  std::wstring getString(const char* key, const wchar_t* def) {
    return file.getString(kSection, widen(key), def);
  }

  void readInt(const char* key, int& member, int def, IntRule rule);
  // Only the number 1 sets a flag; "true" is not accepted in this file.
  void readFlag(const char* key, bool& member, int def) { member = getInt(key, def) == 1; }
  void readString(const char* key, std::wstring& member, const wchar_t* def, StrRule rule);
  void readList(const char* key, std::vector<std::wstring>& member, const wchar_t* def,
                const wchar_t* delimiter);
  void readRange(const char* key, IntRange& member, const wchar_t* def, const char* message);
  void parseSipResend(const std::wstring& text);
};

void VelderIni::Reading::readInt(const char* key, int& member, int def, IntRule rule) {
  switch (rule) {
    case IntRule::Plain:
      member = getInt(key, def);
      return;
    case IntRule::NotInSecureBuild:
      // A secure build offers no unencrypted SIP transport.
      member = ini.secureBuild_ ? 0 : getInt(key, def);
      return;
    case IntRule::ApiServerPort: {
      if (ini.secureBuild_) return;  // the default stays
      const int port = getInt(key, def);
      // 0 turns the server off; privileged and impossible ports are refused.
      if (port != 0 && (port < 1024 || port > 65535)) {
        ini.report("Invalid server port for Client API: " + std::to_string(port));
        return;
      }
      member = port;
      return;
    }
    case IntRule::AtLeastOne: {
      const int value = getInt(key, def);
      if (value < 1) {
        ini.report(std::string("Invalid ") + key + " setting: " + std::to_string(value));
        return;
      }
      member = value;
      return;
    }
    case IntRule::ReconnectDelay: {
      const int delay = getInt(key, def);
      if (delay > kMaxReconnectDelay) {
        ini.report("VELDer flag IPChangeReConnectDelay should be up to 301000 msecs, so 301000 "
                   "is used instead");
        member = kMaxReconnectDelay;
      } else if (delay < 0) {
        ini.report("VELDer flag IPChangeReConnectDelay could not be negative, so 0 is used "
                   "instead");
        member = 0;
      } else {
        member = delay;
      }
      return;
    }
  }
}

void VelderIni::Reading::readString(const char* key, std::wstring& member, const wchar_t* def,
                                    StrRule rule) {
  member = getString(key, def);
  if (rule == StrRule::SipResend) parseSipResend(member);
}

void VelderIni::Reading::readList(const char* key, std::vector<std::wstring>& member,
                                  const wchar_t* def, const wchar_t* delimiter) {
  member = splitList(getString(key, def), delimiter);
  if (member.empty()) member = splitList(def, delimiter);
}

void VelderIni::Reading::readRange(const char* key, IntRange& member, const wchar_t* def,
                                   const char* message) {
  const std::wstring text = getString(key, def);
  if (!parseRange(text, member)) {
    ini.report(message + toUtf8(text) + " -- Range set to: " + rangeLogText(member));
  }
}

void VelderIni::Reading::parseSipResend(const std::wstring& text) {
  ini.sipResend_.clear();
  for (const std::wstring& piece : tokenizeString(text, L",")) {
    const std::wstring entry = trim(piece);
    if (entry.empty()) continue;
    const std::size_t colon = entry.find(L':');
    SipResendEntry parsed{};
    if (colon != std::wstring::npos) parsed.method = trim(entry.substr(0, colon));
    if (colon == std::wstring::npos || parsed.method.empty() ||
        !parseInt(entry.substr(colon + 1), parsed.count) || parsed.count < 0) {
      ini.report("Invalid sipResendConfig entry: " + toUtf8(entry));
      continue;
    }
    ini.sipResend_.push_back(std::move(parsed));
  }
}

// The table's default column for each kind of row.
#define QIM_DEFAULT_Int(def, extra) intDefault(def, IntRule::extra, secureBuild_)
#define QIM_DEFAULT_Flag(def, extra) ((def) == 1)
#define QIM_DEFAULT_NotFlag(def, extra) ((def) == 1)
#define QIM_DEFAULT_Str(def, extra) std::wstring(def)
#define QIM_DEFAULT_List(def, extra) splitList(def, extra)
#define QIM_DEFAULT_Range(def, extra) rangeDefault(def)

std::wstring getVELDerIniPath() { return detail::installedFile(L"data\\VELDer.dat"); }

VelderIni::VelderIni() : VelderIni(isBuildSecure()) {}

VelderIni::VelderIni(bool secureBuild) : secureBuild_(secureBuild) { resetToDefaults(); }

VelderIni* VelderIni::instance() {
  QIM_ASSERT(theInstance.get(), "VelderIni instance not initialized!");
  return theInstance.get();
}

void VelderIni::readVelderIniFile() { readVelderIniFile(getVELDerIniPath()); }

void VelderIni::readVelderIniFile(const std::wstring& path) {
  QIM_ENTRY("path=" << toUtf8(path));
  EncryptionConfigurationFile file;
  bool found = true;
  try {
    file.loadConfigurationFile(path);
  } catch (const FileNotFoundException&) {
    // The file class has logged its throw line; the empty file read below
    // leaves every default in place.
    found = false;
  }
  readFrom(file);
  fileFound_ = found;
  fileDamaged_ = found && file.lastLoadDamaged();
}

void VelderIni::readFrom(IConfigurationFile& file) {
  QIM_ENTRY();
  resetToDefaults();
  readMessages_.clear();
  Reading reading{*this, file};
#define QIM_READ_Int(key, member, def, extra) reading.readInt(key, member, def, IntRule::extra)
#define QIM_READ_Flag(key, member, def, extra) reading.readFlag(key, member, def)
#define QIM_READ_NotFlag(key, member, def, extra) reading.readFlag(key, member, def)
#define QIM_READ_Str(key, member, def, extra) reading.readString(key, member, def, StrRule::extra)
#define QIM_READ_List(key, member, def, extra) reading.readList(key, member, def, extra)
#define QIM_READ_Range(key, member, def, extra) reading.readRange(key, member, def, extra)
#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra) \
  QIM_READ_##kind(#key, key##_, def, extra);
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
#undef QIM_READ_Int
#undef QIM_READ_Flag
#undef QIM_READ_NotFlag
#undef QIM_READ_Str
#undef QIM_READ_List
#undef QIM_READ_Range
}

void VelderIni::resetToDefaults() {
#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra) \
  key##_ = QIM_DEFAULT_##kind(def, extra);
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
  sipResend_.clear();
}

std::vector<VelderIni::SettingValue> VelderIni::settings() const {
#define QIM_TEXT_Int(value, extra) intToWString(value)
#define QIM_TEXT_Flag(value, extra) flagText(value)
#define QIM_TEXT_NotFlag(value, extra) flagText(value)
#define QIM_TEXT_Str(value, extra) std::wstring(value)
#define QIM_TEXT_List(value, extra) listText(value, extra)
#define QIM_TEXT_Range(value, extra) rangeText(value)
  std::vector<SettingValue> all;
#define QIM_VELDERINI_SETTING(kind, accessor, key, def, extra)              \
  all.push_back({#key, QIM_TEXT_##kind(key##_, extra),                      \
                 QIM_TEXT_##kind(QIM_DEFAULT_##kind(def, extra), extra)});
#include "qimmisc/VelderIniKeys.def"
#undef QIM_VELDERINI_SETTING
#undef QIM_TEXT_Int
#undef QIM_TEXT_Flag
#undef QIM_TEXT_NotFlag
#undef QIM_TEXT_Str
#undef QIM_TEXT_List
#undef QIM_TEXT_Range
  return all;
}

IntRange VelderIni::getPortsAboveRTPRange() const {
  // Saturated: a range may end near INT_MAX.
  const auto above = [this](int offset) {
    return static_cast<int>(std::min<long long>(INT_MAX, 1LL * RTPportRange_.high + offset));
  };
  return {above(1), above(11)};
}

int VelderIni::meetMeNumbersCountNormalized() const {
  return std::clamp(meetMeNumbersCount_, 1, kMaxMeetMeNumbers);
}

void VelderIni::report(const std::string& line) {
  QIM_ERROR(line);
  readMessages_.push_back(line);
}

namespace detail {

void createVelderIni() {
  theInstance = std::make_unique<VelderIni>();
  theInstance->readVelderIniFile();
}

void destroyVelderIni() { theInstance.reset(); }

}  // namespace detail

}  // namespace Data
}  // namespace QIM
