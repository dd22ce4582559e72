#include "diagnostics/LibraryObjects.h"

#include "data/SettingsInstances.h"
#include "qimmisc/AsyncOpManager.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/RefCounted.h"
#include "qimmisc/TimerScheduler.h"
#ifdef _WIN32
#include "qimmisc/ActionWindow.h"
#endif

namespace QIM {
namespace detail {

void createLibraryObjects() {
  Data::detail::createVelderIni();
  Data::detail::createRingtoneIni();
}

void destroyLibraryObjects() {
  // The reverse order of createLibraryObjects.
  Data::detail::destroyRingtoneIni();
  Data::detail::destroyVelderIni();

  // Leak reports of the thread-owning classes. The counters live in this
  // module, where the objects are constructed, so the checks run here too.
  TCountedObject<TimerScheduler>::objectCountSanity();
  TCountedObject<AsyncOpManager>::objectCountSanity();
#ifdef _WIN32
  TCountedObject<ActionWindow>::objectCountSanity();
#endif
  Net::NetworkRefCounted::shutdownSanityCheck();
}

}  // namespace detail
}  // namespace QIM
