// The one export macro of the library. Every exported class and free function
// is marked with QIMMISC_API; nothing else decides symbol visibility.
#pragma once

#if defined(QIMMISC_STATIC)
#define QIMMISC_API
#elif defined(_WIN32)
#if defined(QIMMISC_BUILDING)
#define QIMMISC_API __declspec(dllexport)
#else
#define QIMMISC_API __declspec(dllimport)
#endif
#else
#define QIMMISC_API __attribute__((visibility("default")))
#endif
