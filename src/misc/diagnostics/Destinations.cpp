// Where lines go: the two destination slots, the sink interface and the
// line types that travel with each line.
#include "diagnostics/Destinations.h"

#include <mutex>

#include "diagnostics/NoDestructor.h"

namespace QIM {
namespace DbgMsg {

namespace {

std::atomic<LineLogger*> mainDest{nullptr};
std::atomic<LineLogger*> advDest{nullptr};

void setDest(std::atomic<LineLogger*>& slot, LineLogger* dest) {
  std::unique_lock<std::shared_mutex> lock(detail::destinationLock());
  slot.store(dest, std::memory_order_release);
}

}  // namespace

namespace detail {

std::shared_mutex& destinationLock() {
  static ::QIM::detail::NoDestructor<std::shared_mutex> lock;
  return *lock;
}

std::atomic<LineLogger*>& mainDestination() { return mainDest; }

std::atomic<LineLogger*>& advancedDestination() { return advDest; }

LineLogger* traceSink() {
  LineLogger* adv = advDest.load(std::memory_order_acquire);
  return adv ? adv : mainDest.load(std::memory_order_acquire);
}

}  // namespace detail

void setLogDest(LineLogger* dest) { setDest(mainDest, dest); }

LineLogger* getLogDest() { return mainDest.load(std::memory_order_acquire); }

void setAdvUserLogDest(LineLogger* dest) { setDest(advDest, dest); }

LineLogger::~LineLogger() = default;

// Never destroyed: threads may still log while the process exits.
const LogLineType& LLT_Default() {
  static ::QIM::detail::NoDestructor<LogLineType> type(LogLineType("\t"));
  return *type;
}

const LogLineType& LLT_Level1() {
  static ::QIM::detail::NoDestructor<LogLineType> type(LogLineType("level1"));
  return *type;
}

const LogLineType& LLT_User() {
  static ::QIM::detail::NoDestructor<LogLineType> type(LogLineType("custom"));
  return *type;
}

}  // namespace DbgMsg
}  // namespace QIM
