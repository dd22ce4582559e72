// The one way the library includes the Windows API: lean, and without the
// min/max macros that break std::min and std::numeric_limits.
#pragma once

#ifndef _WIN32
#error "Win32.h is for the Windows build only"
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
