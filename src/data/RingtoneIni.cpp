#include "qimmisc/RingtoneIni.h"

#include <ace/Guard_T.h>

#include <memory>

#include "data/InstalledFile.h"
#include "data/SettingsInstances.h"
#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"

namespace QIM {
namespace Data {

namespace {

std::unique_ptr<RingtoneIni> theInstance;

// Only the number 1 sets a flag; text that is no number gives the default.
bool readFlag(IConfigurationFile& file, const std::wstring& section, const wchar_t* key,
              int def) {
  return file.getInt(section, key, def) == 1;
}

}  // namespace

std::wstring getRingtoneIniPath() { return detail::installedFile(L"data\\Ringtone.ini"); }

RingtoneIni::RingtoneIni() = default;

RingtoneIni* RingtoneIni::instance() {
  QIM_ASSERT(theInstance.get(), "RingtoneIni instance not initialized!");
  return theInstance.get();
}

void RingtoneIni::readRingtoneIniFile(const std::wstring& path) {
  QIM_ENTRY("path=" << toUtf8(path));
  BufferConfigurationFile file;
  try {
    file.loadConfigurationFile(path);
  } catch (const FileNotFoundException&) {
    QIM_ERROR("Can't load ringtone file: " << toUtf8(path));
    return;  // the empty configuration would add nothing
  }
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  for (const std::wstring& section : file.getSections()) {
    DistinctiveTone tone;
    tone.cwtPath = file.getString(section, L"cwtPath", L"");
    tone.ringtonePath = file.getString(section, L"ringtonePath", L"");
    tone.cwtLoop = readFlag(file, section, L"cwtLoop", 1);
    tone.ringtoneLoop = readFlag(file, section, L"ringtoneLoop", 1);
    tone.cwtDevice = readFlag(file, section, L"cwtDevice", 0);
    tone.ringtoneDevice = readFlag(file, section, L"ringtoneDevice", 1);
    std::wstring name = section;
    lowercase(name);
    tones_[name] = std::move(tone);
  }
}

bool RingtoneIni::getTone(const std::wstring& name, DistinctiveTone& tone) const {
  std::wstring key = name;
  lowercase(key);
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  const auto found = tones_.find(key);
  if (found == tones_.end()) {
    QIM_ERROR("RingtoneIni::getTone - attempt to retrieve unconfigured tone : " << toUtf8(name));
    return false;
  }
  tone = found->second;
  return true;
}

std::vector<std::pair<std::wstring, DistinctiveTone>> RingtoneIni::tones() const {
  ACE_Guard<ACE_Thread_Mutex> lock(mutex_);
  return {tones_.begin(), tones_.end()};
}

namespace detail {

void createRingtoneIni() { theInstance = std::make_unique<RingtoneIni>(); }

void destroyRingtoneIni() { theInstance.reset(); }

}  // namespace detail

}  // namespace Data
}  // namespace QIM
