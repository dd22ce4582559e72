// What the trace facility needs from the operating system. Implemented in
// DbgMsg_win.cpp and DbgMsg_posix.cpp.
#pragma once

namespace QIM {
namespace DbgMsg {
namespace platform {

// The id printed in line headers: GetCurrentThreadId on Windows, the kernel
// thread id on Linux (short enough for the 4-digit column, and what
// debuggers and /proc show).
unsigned long currentThreadId();

// The OS last-error code: GetLastError on Windows; POSIX has only errno.
unsigned int osLastError();

}  // namespace platform
}  // namespace DbgMsg
}  // namespace QIM
