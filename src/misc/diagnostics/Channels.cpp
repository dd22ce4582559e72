// The channel table and the ENTRY settings.
#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "diagnostics/Channels.h"
#include "diagnostics/NoDestructor.h"
#include "diagnostics/SiteNames.h"
#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {

namespace {

// Names and flags are fixed-size arrays that are constant-initialised, so
// the table exists before any static constructor of any module runs. A name
// is published before the count that makes it visible, so readers need no
// lock; adding a name takes addLock().
std::atomic<const char*> channelNames[MaxChannels] = {"ERROR", "ENTRY", "ADVUSERLOG"};
std::atomic<int> channelCount{3};
// Open state given to channels added later, set by the last "+all"/"-all".
std::atomic<bool> newChannelsOpen{false};
std::atomic<unsigned> widestName{0};

std::atomic<bool> arrows{true};
std::atomic<int> maxDepth{-1};

std::mutex& addLock() {
  static ::QIM::detail::NoDestructor<std::mutex> mutex;
  return *mutex;
}

int findChannel(const char* name) {
  const int n = channelCount.load(std::memory_order_acquire);
  for (int i = 0; i < n; ++i) {
    if (std::strcmp(channelNames[i].load(std::memory_order_relaxed), name) == 0) return i;
  }
  return -1;
}

}  // namespace

namespace detail {

std::atomic<bool> channelOpen[MaxChannels] = {true, false, true};

unsigned channelColumnWidth(unsigned nameLength) {
  unsigned widest = widestName.load(std::memory_order_relaxed);
  while (nameLength > widest &&
         !widestName.compare_exchange_weak(widest, nameLength, std::memory_order_relaxed)) {
  }
  return nameLength > widest ? nameLength : widest;
}

bool entryArrows() { return arrows.load(std::memory_order_relaxed); }

int entryMaxDepth() { return maxDepth.load(std::memory_order_relaxed); }

}  // namespace detail

int getChannelByName(const char* name) {
  if (!name) return -1;
  if (const int found = findChannel(name); found >= 0) return found;
  std::lock_guard<std::mutex> lock(addLock());
  if (const int found = findChannel(name); found >= 0) return found;
  const int n = channelCount.load(std::memory_order_relaxed);
  if (n >= MaxChannels) return -1;
  channelNames[n].store(detail::intern(name), std::memory_order_relaxed);
  detail::channelOpen[n].store(newChannelsOpen.load(std::memory_order_relaxed),
                               std::memory_order_relaxed);
  channelCount.store(n + 1, std::memory_order_release);
  return n;
}

const char* channelName(int channel) {
  if (channel < 0 || channel >= channelCount.load(std::memory_order_acquire)) return nullptr;
  return channelNames[channel].load(std::memory_order_relaxed);
}

void toggleChannel(int channel, bool open) {
  if (channel < 0 || channel >= MaxChannels) return;
  detail::channelOpen[channel].store(open, std::memory_order_relaxed);
}

void initChannels(const char* items) {
  if (!items) {
    newChannelsOpen.store(false, std::memory_order_relaxed);
    for (auto& flag : detail::channelOpen) flag.store(false, std::memory_order_relaxed);
    toggleChannel(ErrorId, true);
    toggleChannel(AdvUserLogId, true);
    return;
  }
  std::string_view rest(items);
  while (!rest.empty()) {
    const auto colon = rest.find(':');
    const std::string_view item = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    if (item.empty()) continue;
    const bool open = item.front() == '+';
    const std::string name(item.substr(1));
    if (name == "all") {
      newChannelsOpen.store(open, std::memory_order_relaxed);
      const int n = channelCount.load(std::memory_order_acquire);
      for (int i = 0; i < n; ++i) toggleChannel(i, open);
    } else if (!name.empty()) {
      toggleChannel(getChannelByName(name.c_str()), open);
    }
  }
}

void setEntryParams(bool entryArrows, int entryMaxDepth) {
  arrows.store(entryArrows, std::memory_order_relaxed);
  maxDepth.store(entryMaxDepth, std::memory_order_relaxed);
}

}  // namespace DbgMsg
}  // namespace QIM
