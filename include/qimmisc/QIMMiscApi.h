// Start and end of the library. Several host components use the library at
// once, so the calls are counted: the first init creates the shared objects,
// the last exit destroys them and reports leaked thread-owning objects.
#pragma once

#include "qimmisc/Export.h"

namespace QIM {

class QIMMISC_API QIMMiscApi {
 public:
  /// Counts one more user; the first creates the process-wide settings
  /// objects. Not locked: call init and exit from one thread.
  static void init();
  /// Counts one user less; the last destroys the shared objects and reports
  /// undestroyed TimerScheduler and AsyncOpManager objects.
  static void exit();
  /// The number of init calls not matched by exit (negative after an
  /// unbalanced exit).
  static int refCount();
};

}  // namespace QIM
