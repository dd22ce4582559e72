#include "CallTracker.h"

#include <cstring>

namespace qimtool {

using QIM::DbgMsg::TraceLineKind;

namespace {
const std::vector<OpenCall> kNoCalls;
}  // namespace

CallTracker::CallTracker(CallListener* listener, bool paths, const std::uint64_t* thread)
    : listener_(listener), paths_(paths), oneThread_(thread != nullptr),
      thread_(thread ? *thread : 0), nodes_(1) {}

// A name's slot in the recent-names cache: its length and its first and
// last bytes, mixed. Cheaper than hashing every byte, and a wrong guess
// costs only the look-up in the table.
std::size_t CallTracker::cacheSlot(std::string_view name) {
  std::uint64_t head = 0, tail = 0;
  const std::size_t n = name.size() < 8 ? name.size() : 8;
  std::memcpy(&head, name.data(), n);
  std::memcpy(&tail, name.data() + name.size() - n, n);
  const std::uint64_t mixed = (head ^ (tail * 0x9E3779B97F4A7C15ull) ^ name.size()) * 0xFF51AFD7ED558CCDull;
  return static_cast<std::size_t>(mixed >> 56) % kCacheSlots;
}

std::uint32_t CallTracker::intern(std::string_view function) {
  std::uint32_t& cached = recent_[cacheSlot(function)];
  if (cached < functions_.size() && sameText(functions_[cached], function)) return cached;
  const auto found = functionIds_.find(function);
  if (found != functionIds_.end()) return cached = found->second;
  const auto id = static_cast<std::uint32_t>(functions_.size());
  functions_.emplace_back(function);
  functionIds_.emplace(functions_.back(), id);
  return cached = id;
}

std::uint32_t CallTracker::childNode(std::uint32_t parent, std::uint32_t function) {
  if (!paths_) return 0;
  const std::uint64_t key = static_cast<std::uint64_t>(parent) << 32 | function;
  const auto [it, added] = nodeIds_.try_emplace(key, static_cast<std::uint32_t>(nodes_.size()));
  if (added) {
    CallNode node;
    node.parent = parent;
    node.function = function;
    nodes_.push_back(node);
  }
  return it->second;
}

std::vector<OpenCall>& CallTracker::stackOf(std::uint64_t thread) {
  if (!lastStack_ || lastThread_ != thread) {
    const auto [it, added] = stacks_.try_emplace(thread);
    if (added) threads_.push_back(thread);
    lastStack_ = &it->second;
    lastThread_ = thread;
  }
  return *lastStack_;
}

const std::vector<OpenCall>& CallTracker::openCalls(std::uint64_t thread) const {
  const auto found = stacks_.find(thread);
  return found == stacks_.end() ? kNoCalls : found->second;
}

void CallTracker::onLine(const ReadLine& line) {
  if (line.role != LineRole::Library) return;
  const auto kind = line.fields.kind;
  // Only the ENTRY channel's lines carry a depth marker.
  if (kind != TraceLineKind::Entry && kind != TraceLineKind::Return) return;
  if (line.fields.marker == QIM::DbgMsg::DepthMarker::None) return;
  if (oneThread_ && line.fields.thread != thread_) return;
  std::vector<OpenCall>& stack = stackOf(line.fields.thread);
  if (kind == TraceLineKind::Entry) {
    enter(stack, line);
  } else {
    leave(stack, line);
  }
}

// Calls at this depth or deeper still open lost their return lines: a
// thread's calls nest, so a new call at depth d means the earlier ones at d
// and below have ended.
void CallTracker::enter(std::vector<OpenCall>& stack, const ReadLine& line) {
  while (!stack.empty() && stack.back().depth >= line.fields.depth) {
    close(stack, Unreturned::NewEntry);
  }
  OpenCall call;
  call.function = intern(line.fields.function);
  call.node = childNode(stack.empty() ? 0 : stack.back().node, call.function);
  call.depth = line.fields.depth;
  call.at = line.at;
  stack.push_back(call);
  if (listener_) listener_->onEnter(lastThread_, stack.back(), line);
}

void CallTracker::leave(std::vector<OpenCall>& stack, const ReadLine& line) {
  // Mostly the newest call; a deeper one still open lost its return line.
  std::size_t match = stack.size();
  while (match > 0) {
    const OpenCall& call = stack[match - 1];
    if (call.depth == line.fields.depth && sameText(functions_[call.function], line.fields.function)) break;
    if (call.depth < line.fields.depth) {
      match = 0;
      break;
    }
    --match;
  }
  if (match == 0) {
    ++orphans_;
    if (listener_) listener_->onOrphanReturn(lastThread_, line);
    return;
  }
  while (stack.size() > match) close(stack, Unreturned::OuterReturn);
  const OpenCall call = stack.back();
  stack.pop_back();
  // Times never run backwards on the clock the library uses; a negative one
  // is damage and counts as none.
  const long long usec = line.fields.usec > 0 ? line.fields.usec : 0;
  ++returned_;
  if (!stack.empty()) addTime(stack.back().calleeUsec, usec);
  if (paths_) {
    CallNode& node = nodes_[call.node];
    ++node.calls;
    addTime(node.totalUsec, usec);
    addTime(node.selfUsec, usec > call.calleeUsec ? usec - call.calleeUsec : 0);
  }
  if (listener_) listener_->onReturn(lastThread_, call, usec, line);
}

void CallTracker::close(std::vector<OpenCall>& stack, Unreturned why) {
  const OpenCall call = stack.back();
  stack.pop_back();
  ++unreturned_;
  if (paths_) ++nodes_[call.node].unreturned;
  if (listener_) listener_->onUnreturned(lastThread_, call, why);
}

void CallTracker::onEnd() {
  for (const std::uint64_t thread : threads_) {
    std::vector<OpenCall>& stack = stackOf(thread);
    while (!stack.empty()) close(stack, Unreturned::EndOfInput);
  }
}

}  // namespace qimtool
