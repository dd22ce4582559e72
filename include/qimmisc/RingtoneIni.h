// The client's distinctive ring tones: for each named tone, the sound files
// played as ring tone and as call-waiting tone, read from "data\Ringtone.ini"
// below the installation folder (one section per tone).
#pragma once

#include <ace/Thread_Mutex.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qimmisc/Export.h"

namespace QIM {
namespace Data {

/// The installation folder + "data\Ringtone.ini", with the platform's
/// separator ("data/Ringtone.ini" on Linux).
QIMMISC_API std::wstring getRingtoneIniPath();

/// One tone, copied by value. A default-made tone loops both sounds, sets
/// the ring tone's device flag, clears the call-waiting one, and has no
/// files. The device flags go to the player as configured.
struct DistinctiveTone {
  bool cwtLoop = true;          ///< "cwtLoop": the call-waiting tone repeats
  bool cwtDevice = false;       ///< "cwtDevice"
  std::wstring cwtPath;         ///< "cwtPath": the call-waiting sound file
  bool ringtoneLoop = true;     ///< "ringtoneLoop": the ring tone repeats
  bool ringtoneDevice = true;   ///< "ringtoneDevice"
  std::wstring ringtonePath;    ///< "ringtonePath": the ring tone sound file
};

inline bool operator==(const DistinctiveTone& a, const DistinctiveTone& b) {
  return a.cwtLoop == b.cwtLoop && a.cwtDevice == b.cwtDevice && a.cwtPath == b.cwtPath &&
         a.ringtoneLoop == b.ringtoneLoop && a.ringtoneDevice == b.ringtoneDevice &&
         a.ringtonePath == b.ringtonePath;
}

/// The tones by lower-cased name. One process-wide instance, made (empty)
/// by the first QIMMiscApi::init and destroyed by the last exit; the client
/// reads its file into it. Every operation holds the object's lock, so
/// look-ups may run on any thread, also during a read.
class QIMMISC_API RingtoneIni {
 public:
  /// No tones; reads nothing.
  RingtoneIni();
  RingtoneIni(const RingtoneIni&) = delete;
  RingtoneIni& operator=(const RingtoneIni&) = delete;

  /// The process-wide instance; null, after the assertion line
  /// "RingtoneIni instance not initialized!", before the first init or
  /// after the last exit.
  static RingtoneIni* instance();

  /// Adds the tones of the settings file at `path`, one per section,
  /// replacing tones of the same name; tones read earlier stay. A flag is
  /// set only by the number 1; text that is no number gives its default. A
  /// missing file logs "Can't load ringtone file: " + path (ERROR) and adds
  /// nothing.
  void readRingtoneIniFile(const std::wstring& path);

  /// Copies the tone called `name` (any case) into `tone` and returns true;
  /// otherwise logs "RingtoneIni::getTone - attempt to retrieve unconfigured
  /// tone : " + name (ERROR), leaves `tone` alone and returns false.
  bool getTone(const std::wstring& name, DistinctiveTone& tone) const;

  /// Every tone, ordered by name.
  std::vector<std::pair<std::wstring, DistinctiveTone>> tones() const;

 private:
  mutable ACE_Thread_Mutex mutex_;
  std::map<std::wstring, DistinctiveTone> tones_;
};

}  // namespace Data
}  // namespace QIM
