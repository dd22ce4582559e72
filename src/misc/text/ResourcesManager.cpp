#include "qimmisc/ResourcesManager.h"

#include <ace/Guard_T.h>

#include <filesystem>
#include <fstream>

#include "qimmisc/JavaResourceParser.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/Trace.h"
#include "qimmisc/VelderIni.h"

namespace QIM {

namespace {

bool isValidCode(const std::string& code) {
  if (code.empty()) return false;
  for (const char c : code) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

std::wstring fileOf(const std::wstring& folder, const std::string& code) {
  return folder + fromUtf8(code) + L".properties";
}

class TableSink : public IJavaResourceSink {
 public:
  explicit TableSink(std::unordered_map<std::string, std::wstring>& table) : table_(table) {}
  bool addResource(const std::string& key, const std::wstring& value) override {
    std::wstring& stored = table_[key] = value;
    // Files edited on Windows, read as bytes everywhere.
    if (!stored.empty() && stored.back() == L'\r') stored.pop_back();
    return true;
  }

 private:
  std::unordered_map<std::string, std::wstring>& table_;
};

}  // namespace

ResourcesManager& ResourcesManager::instance() {
  static ResourcesManager theInstance;
  return theInstance;
}

ResourcesManager::ResourcesManager() : language_(kFallbackLanguage) {}

std::wstring ResourcesManager::getString(const std::wstring& key) {
  const std::string narrowKey = toUtf8(key);
  if (narrowKey.empty() && !key.empty()) return {};  // not text: no file holds it
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  for (const std::string& code : {language_, std::string(kFallbackLanguage)}) {
    const Table& table = tableLocked(code);
    const auto found = table.find(narrowKey);
    if (found != table.end()) return found->second;
  }
  return {};
}

std::string ResourcesManager::getCurrentLanguageCode(bool resolved) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  if (resolved && !isSupportedLocked(language_)) return kFallbackLanguage;
  return language_;
}

bool ResourcesManager::isLanguageSupported(std::wstring code) {
  const std::string narrow = toUtf8(code);
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return isSupportedLocked(narrow);
}

void ResourcesManager::setCurrentLanguage(const std::string& code) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  language_ = code.empty() ? kFallbackLanguage : code;
}

void ResourcesManager::chooseLanguage(const Data::VelderIni& settings) {
  setCurrentLanguage(toUtf8(settings.getDefaultLanguage()));
}

void ResourcesManager::setLanguageFolder(const std::wstring& folder) {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  folder_ = folder;
  if (!folder_.empty() && folder_.back() != kPathSeparator && folder_.back() != L'/') {
    folder_ += kPathSeparator;
  }
  tables_.clear();
}

std::wstring ResourcesManager::getLanguageFolder() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return folderLocked();
}

void ResourcesManager::reload() {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  tables_.clear();
}

std::wstring ResourcesManager::folderLocked() const {
  if (!folder_.empty()) return folder_;
  return getInstallationPath() + L"lang" + kPathSeparator;
}

bool ResourcesManager::isSupportedLocked(const std::string& code) const {
  return isValidCode(code) && fileExists(fileOf(folderLocked(), code));
}

const ResourcesManager::Table& ResourcesManager::tableLocked(const std::string& code) {
  const auto known = tables_.find(code);
  if (known != tables_.end()) return known->second;
  Table& table = tables_[code];  // kept even when empty: one attempt per file
  if (!isSupportedLocked(code)) {
    QIM_ERROR("No language file for \"" << code << "\" in " << toUtf8(folderLocked()));
    return table;
  }
  const std::string path = toUtf8(fileOf(folderLocked(), code));
  std::ifstream in(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
  if (!in) {
    QIM_ERROR("Cannot open language file " << path);
    return table;
  }
  TableSink sink(table);
  parseJavaResources(in, sink);
  QIM_TRACE(DbgMsg::AdvUserLogId, "Read " << table.size() << " strings from " << path);
  return table;
}

}  // namespace QIM
