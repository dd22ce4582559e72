// Umbrella header: every public class and free function of the library.
#pragma once

#include "qimmisc/ActionQueue.h"
#include "qimmisc/ActionThread.h"
#include "qimmisc/ActionWindow.h"  // declares ActionWindow on Windows only
#include "qimmisc/AsyncOpManager.h"
#include "qimmisc/BuildInfo.h"
#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"
#include "qimmisc/FileLogger.h"
#include "qimmisc/ODSLogger.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/ReactorActionQueue.h"
#include "qimmisc/RefCounted.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/TeeLogger.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/TimerScheduler.h"
#include "qimmisc/Trace.h"
#include "qimmisc/functor.h"
