// Calls rebuilt from ENTRY lines: per thread the calls still open, per
// function and per call path (the calling-context tree) what the returned
// calls took. Memory grows with the threads, functions, distinct call paths
// and open calls, never with the lines read.
//
// A call is an ENTRY line; its end is the "<ret Time:N usec>" line of the
// same function at the same depth on the same thread. A call whose return
// line never comes is "unreturned", never guessed: its time is unknown and
// counts nowhere, only the calls it made that did return.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "LogReader.h"

namespace qimtool {

/// Adds microseconds to a sum that stops at the largest value instead of
/// overflowing: a damaged line may claim any time.
inline void addTime(long long& sum, long long usec) {
  sum = usec > std::numeric_limits<long long>::max() - sum ? std::numeric_limits<long long>::max()
                                                          : sum + usec;
}

/// Why a call has no return line.
enum class Unreturned {
  EndOfInput,   ///< still open when the last file ended
  NewEntry,     ///< an entry at its depth or above came first: its return line is missing
  OuterReturn,  ///< a caller returned first: its return line is missing
};

/// One open call on a thread's stack.
struct OpenCall {
  std::uint32_t function = 0;  ///< CallTracker::functionName(function)
  std::uint32_t node = 0;      ///< its call path, CallTracker::node(node)
  int depth = 0;               ///< as the ENTRY line showed it
  long long calleeUsec = 0;    ///< time of the calls it made that returned
  LinePosition at;             ///< its ENTRY line
};

/// A call path: a function called through the path of its parent node.
/// Node 0 is the root (no function).
struct CallNode {
  std::uint32_t parent = 0;
  std::uint32_t function = 0;
  std::uint64_t calls = 0;       ///< returned calls
  std::uint64_t unreturned = 0;  ///< calls without a return line
  long long totalUsec = 0;       ///< time of the returned calls
  long long selfUsec = 0;        ///< that time less their returned callees'
};

/// What a command wants to hear about calls; every hook is optional.
class CallListener {
 public:
  virtual ~CallListener() = default;
  virtual void onEnter(std::uint64_t /*thread*/, const OpenCall& /*call*/,
                       const ReadLine& /*line*/) {}
  virtual void onReturn(std::uint64_t /*thread*/, const OpenCall& /*call*/, long long /*usec*/,
                        const ReadLine& /*line*/) {}
  virtual void onUnreturned(std::uint64_t /*thread*/, const OpenCall& /*call*/,
                            Unreturned /*why*/) {}
  /// A return line whose ENTRY line is not in the input (it began earlier).
  virtual void onOrphanReturn(std::uint64_t /*thread*/, const ReadLine& /*line*/) {}
};

class CallTracker : public LogLineHandler {
 public:
  /// `paths`: keep the calling-context tree (for stacks and flame graphs).
  /// `thread`: only this thread's calls, or every thread's when null.
  explicit CallTracker(CallListener* listener = nullptr, bool paths = false,
                       const std::uint64_t* thread = nullptr);

  /// Feeds one line; only ENTRY-channel Entry and Return lines count.
  void onLine(const ReadLine& line) override;
  /// Every call still open is unreturned at the end of the input.
  void onEnd() override;

  const std::string& functionName(std::uint32_t function) const { return functions_[function]; }
  std::size_t functionCount() const { return functions_.size(); }
  const CallNode& node(std::uint32_t id) const { return nodes_[id]; }
  std::size_t nodeCount() const { return nodes_.size(); }
  /// The open calls of `thread`, oldest first (empty for a thread not seen).
  const std::vector<OpenCall>& openCalls(std::uint64_t thread) const;

  std::uint64_t returned() const { return returned_; }
  std::uint64_t unreturned() const { return unreturned_; }
  std::uint64_t orphanReturns() const { return orphans_; }

 private:
  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
  };
  static constexpr std::size_t kCacheSlots = 256;
  static std::size_t cacheSlot(std::string_view name);
  std::uint32_t intern(std::string_view function);
  std::uint32_t childNode(std::uint32_t parent, std::uint32_t function);
  std::vector<OpenCall>& stackOf(std::uint64_t thread);
  void enter(std::vector<OpenCall>& stack, const ReadLine& line);
  void leave(std::vector<OpenCall>& stack, const ReadLine& line);
  void close(std::vector<OpenCall>& stack, Unreturned why);

  CallListener* listener_;
  bool paths_;
  bool oneThread_;
  std::uint64_t thread_;
  std::unordered_map<std::string, std::uint32_t, NameHash, std::equal_to<>> functionIds_;
  std::vector<std::string> functions_;
  std::uint32_t recent_[kCacheSlots] = {};  // function ids by cacheSlot, checked on use
  std::unordered_map<std::uint64_t, std::uint32_t> nodeIds_;  // parent << 32 | function
  std::vector<CallNode> nodes_;
  std::unordered_map<std::uint64_t, std::vector<OpenCall>> stacks_;
  std::vector<std::uint64_t> threads_;  // in the order they first appeared
  std::uint64_t lastThread_ = 0;
  std::vector<OpenCall>* lastStack_ = nullptr;
  std::uint64_t returned_ = 0, unreturned_ = 0, orphans_ = 0;
};

}  // namespace qimtool
