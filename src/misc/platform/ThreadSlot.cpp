#include "platform/ThreadSlot.h"

namespace QIM {
namespace detail {

ThreadSlotValue::~ThreadSlotValue() = default;

}  // namespace detail
}  // namespace QIM
