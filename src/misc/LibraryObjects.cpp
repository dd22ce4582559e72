#include "LibraryObjects.h"

namespace QIM {
namespace detail {

void createLibraryObjects() {
  // The main settings (VelderIni) and the ringtone settings join here when
  // the settings classes exist.
}

void destroyLibraryObjects() {
  // Reverse order of createLibraryObjects, then the leak checks of
  // TimerScheduler and AsyncOpManager.
}

}  // namespace detail
}  // namespace QIM
