#include <ace/Time_Value.h>

namespace QIM {
namespace detail {

// ACE's timed waits on Windows turn the time left into whole milliseconds,
// rounding down, and so time out up to a millisecond early. Waiting until
// just under a millisecond past the expiry keeps the time-out from coming
// before the timer is due, instead of spinning through zero-length waits.
ACE_Time_Value timerWaitDeadline(const ACE_Time_Value& expiry) {
  return expiry + ACE_Time_Value(0, 999);
}

}  // namespace detail
}  // namespace QIM
