// The localized strings of the user interface, one language file per
// language.
//
// Language files are resource files (JavaResourceParser.h) named
// "<code>.properties", e.g. "en.properties", "zh_CN.properties", in the
// language folder: "lang" below the installation folder
// (getInstallationPath()), unless setLanguageFolder names another. A code
// is letters, digits, '_' and '-' only; anything else is never supported,
// so a code cannot reach outside the folder. Files are read as bytes (a
// carriage return ending a value is dropped); in a key that occurs twice
// the later line wins.
//
// The current language is "en" until setCurrentLanguage or
// chooseLanguage chooses another; the host calls chooseLanguage with the
// main settings (VelderIni::instance()) once they are read, so their
// "defaultLanguage" applies. A string missing from the current language, or a
// current language without a file, falls back to "en" (kFallbackLanguage);
// a string missing there too is empty.
//
// Each file is read on first use and kept until the folder changes or
// reload() is called. Every operation is thread-safe.
#pragma once

#include <ace/Thread_Mutex.h>

#include <map>
#include <string>
#include <unordered_map>

#include "qimmisc/Export.h"

namespace QIM {

namespace Data {
class VelderIni;
}

class QIMMISC_API ResourcesManager {
 public:
  /// The language every other one falls back to.
  static constexpr const char* kFallbackLanguage = "en";

  /// The process-wide instance, made on first use.
  static ResourcesManager& instance();

  ResourcesManager(const ResourcesManager&) = delete;
  ResourcesManager& operator=(const ResourcesManager&) = delete;

  /// The localized string for `key` (UTF-8 in the files), from the current
  /// language, else from the fallback language; empty when neither has it.
  std::wstring getString(const std::wstring& key);

  /// The current language code as chosen (`resolved` false), or the one
  /// strings are actually taken from (`resolved` true: the fallback
  /// language when the chosen one has no file).
  std::string getCurrentLanguageCode(bool resolved);

  /// Whether `code` is a valid code whose language file exists.
  bool isLanguageSupported(std::wstring code);

  /// Chooses the current language (a code such as "de" or "zh_CN"); an
  /// empty code chooses the fallback language.
  void setCurrentLanguage(const std::string& code);

  /// Chooses the main settings' "defaultLanguage" (from wide to UTF-8);
  /// when that is empty, the fallback language.
  void chooseLanguage(const Data::VelderIni& settings);

  /// Reads language files from `folder` (with or without a trailing
  /// separator) from now on; an empty folder restores the default.
  void setLanguageFolder(const std::wstring& folder);

  /// The folder language files are read from, with its trailing separator.
  std::wstring getLanguageFolder();

  /// Forgets every file read, so the next lookups read them again.
  void reload();

 private:
  using Table = std::unordered_map<std::string, std::wstring>;

  ResourcesManager();
  std::wstring folderLocked() const;
  bool isSupportedLocked(const std::string& code) const;
  const Table& tableLocked(const std::string& code);

  ACE_Thread_Mutex mutex_;
  std::wstring folder_;    // empty: the default below the installation
  std::string language_;
  std::map<std::string, Table> tables_;
};

}  // namespace QIM
