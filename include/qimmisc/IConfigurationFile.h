// The library's one interface to a sectioned key/value settings file. The
// settings classes (main settings, ringtones, profiles) read their files
// through it; BufferConfigurationFile is the plain-text implementation and
// EncryptionConfigurationFile its enciphered form.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {

/// The keys and values of one section, ordered by plain (case-sensitive)
/// comparison of the keys.
using ConfigurationSection = std::map<std::wstring, std::wstring>;

/// A settings file of named sections of key/value pairs. Section and key
/// names match without regard to case (clearSection excepted); values are
/// wide text. The order of the virtual operations below is part of the
/// design: implementations and hosts built against it rely on the slots.
class QIMMISC_API IConfigurationFile {
 public:
  /// Replaces the whole content by the file at `path`, which later write()
  /// calls reuse. A missing file throws FileNotFoundException.
  virtual void loadConfigurationFile(const std::wstring& path) = 0;

  /// The value read as a decimal integer (leading digits only), or
  /// `defaultValue` when absent or not a number.
  virtual int getInt(const std::wstring& section, const std::wstring& key,
                     int defaultValue) = 0;
  /// Stores `value` in decimal.
  virtual void setInt(const std::wstring& section, const std::wstring& key, int value) = 0;

  /// "true" or "false" in any case; anything else gives `defaultValue`.
  virtual bool getBool(const std::wstring& section, const std::wstring& key,
                       bool defaultValue) = 0;
  /// Stores "true" or "false".
  virtual void setBool(const std::wstring& section, const std::wstring& key, bool value) = 0;

  /// The stored value, or `defaultValue` when the key is absent. An absent
  /// section is created empty, so getSections lists it afterwards.
  virtual std::wstring getString(const std::wstring& section, const std::wstring& key,
                                 std::wstring defaultValue) = 0;
  /// Stores `value`, creating the section and key as needed.
  virtual void setString(const std::wstring& section, const std::wstring& key,
                         std::wstring value) = 0;

  /// Writes the whole content to `path`.
  virtual void write(const std::wstring& path) = 0;
  /// Writes the whole content to the path of the last load.
  virtual void write() = 0;

  /// Empties the section of exactly this spelling (no case folding here),
  /// creating it empty when absent.
  virtual void clearSection(const std::wstring& section) = 0;
  /// Replaces the section's whole content by `values`.
  virtual void setSection(const std::wstring& section, ConfigurationSection values) = 0;
  /// A copy of the section's content; an absent section is created empty.
  virtual ConfigurationSection getSection(const std::wstring& section) = 0;
  /// The section names in plain (case-sensitive) order.
  virtual std::vector<std::wstring> getSections() = 0;

  virtual ~IConfigurationFile();
};

}  // namespace QIM
