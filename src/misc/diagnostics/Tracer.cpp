// Trace lines: the line header and the pooled line streams.
#include <cstring>

#include "diagnostics/Channels.h"
#include "diagnostics/DbgMsgPlatform.h"
#include "diagnostics/Destinations.h"
#include "diagnostics/LineFormat.h"
#include "diagnostics/LineStream.h"
#include "diagnostics/ThreadState.h"

namespace QIM {
namespace DbgMsg {

Tracer::Tracer(const Locus& locus, const LogLineType& type) : type_(&type) {
  auto& pool = detail::threadState().freeLines;
  if (pool.empty()) {
    line_ = new detail::LineStream;
  } else {
    line_ = pool.back().release();
    pool.pop_back();
  }
  stream_ = &line_->stream();

  std::atomic<LineLogger*>& adv = detail::advancedDestination();
  const bool advSet = adv.load(std::memory_order_acquire) != nullptr;
  slot_ = advSet ? &adv : &detail::mainDestination();
  if (advSet && locus.channel == AdvUserLogId) return;  // bare user line

  const char* name = channelName(locus.channel);
  if (!name) name = "";
  const unsigned length = static_cast<unsigned>(std::strlen(name));
  const unsigned width = detail::channelColumnWidth(length);

  std::string& out = line_->text();
  out += '[';
  detail::appendThreadId(out, platform::currentThreadId());
  out += "] ";
  out += name;
  out.append(width - length, ' ');
  out += '>';
  if (locus.channel == EntryId) {
    const unsigned depth = detail::callStack.depth;
    if (detail::entryArrows()) {
      if (depth > 1) out.append(depth - 1, '>');
    } else {
      out += '[';
      if (depth < 10) out += ' ';
      detail::appendDecimal(out, depth);
      out += ']';
    }
  }
  out += ' ';
  out += locus.file;
  out += ':';
  detail::appendDecimal(out, locus.line);
  out += " (";
  out += locus.function;
  out += ") ";
}

Tracer::~Tracer() {
  try {
    std::shared_lock<std::shared_mutex> lock(detail::destinationLock());
    if (LineLogger* sink = slot_->load(std::memory_order_acquire)) {
      SinkAccess::deliver(*sink, line_->text(), *type_);
    }
  } catch (...) {
    // Out of memory or a throwing sink: the line is lost, never the caller.
  }
  line_->reset();
  try {
    detail::threadState().freeLines.emplace_back(line_);
  } catch (...) {
    delete line_;
  }
}

}  // namespace DbgMsg
}  // namespace QIM
