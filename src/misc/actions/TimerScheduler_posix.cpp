#include <ace/Time_Value.h>

namespace QIM {
namespace detail {

// The condition variable waits on CLOCK_MONOTONIC to the nanosecond and
// never times out before its deadline: wait until the expiry itself.
ACE_Time_Value timerWaitDeadline(const ACE_Time_Value& expiry) { return expiry; }

}  // namespace detail
}  // namespace QIM
