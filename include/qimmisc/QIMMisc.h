// Umbrella header: every public class and free function of the library.
#pragma once

#include "qimmisc/BuildInfo.h"
#include "qimmisc/DbgMsg.h"
#include "qimmisc/Export.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/QIMMiscApi.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/ThreadUtils.h"
#include "qimmisc/Trace.h"
#include "qimmisc/functor.h"
