// Where finished lines go (Destinations.cpp): the main and advanced-user
// destination slots and the lock that lets a setter know no thread is still
// inside the sink it replaced.
#pragma once

#include <atomic>
#include <shared_mutex>
#include <string>

#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {

/// Calls a sink's private doLogging for the facility and TeeLogger.
struct SinkAccess {
  static void deliver(LineLogger& sink, const std::string& line, const LogLineType& type) {
    sink.doLogging(line, type);
  }
};

namespace detail {

/// Delivery holds it shared, the setters exclusive.
std::shared_mutex& destinationLock();

/// The slots themselves; a Tracer keeps the one it chose and reads it again
/// at delivery.
std::atomic<LineLogger*>& mainDestination();
std::atomic<LineLogger*>& advancedDestination();

/// Where back-traces and captured traces go: the advanced-user destination
/// if set, else the main one, else null. The caller holds the lock shared.
LineLogger* traceSink();

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
