#include "actions/TimerList.h"

#include <new>
#include <utility>

namespace QIM::detail {

ACE_Time_Value ExpiryList::frontExpiry() const {
  const std::int64_t due = entries_.front().due;
  return ACE_Time_Value(static_cast<time_t>(due / 1000000), static_cast<suseconds_t>(due % 1000000));
}

bool ExpiryList::insert(Timer* timer, std::int64_t dueUs) {
  entries_.emplace_back();  // the only step that may throw
  siftUp(entries_.size() - 1, Entry{dueUs, added_++, timer});
  return timer->slot == 0;
}

void ExpiryList::erase(Timer* timer) {
  const std::size_t slot = timer->slot;
  timer->slot = Timer::NotPending;
  const Entry last = entries_.back();
  entries_.pop_back();
  if (slot < entries_.size()) {
    // The last entry fills the hole, then moves whichever way it must.
    if (slot > 0 && last < entries_[(slot - 1) / 2]) {
      siftUp(slot, last);
    } else {
      siftDown(slot, last);
    }
  }
  // A burst leaves no large array behind once it is over.
  if (entries_.empty() && entries_.capacity() > 1024) std::vector<Entry>().swap(entries_);
}

void ExpiryList::siftUp(std::size_t slot, Entry entry) {
  while (slot > 0) {
    const std::size_t parent = (slot - 1) / 2;
    if (!(entry < entries_[parent])) break;
    put(slot, entries_[parent]);
    slot = parent;
  }
  put(slot, entry);
}

void ExpiryList::siftDown(std::size_t slot, Entry entry) {
  const std::size_t size = entries_.size();
  for (;;) {
    std::size_t child = 2 * slot + 1;
    if (child >= size) break;
    if (child + 1 < size && entries_[child + 1] < entries_[child]) ++child;
    if (!(entries_[child] < entry)) break;
    put(slot, entries_[child]);
    slot = child;
  }
  put(slot, entry);
}

void TimerSet::insert(Timer* timer) {
  if (!slots_) {
    slots_.reset(new Timer*[MinCapacity]());
    mask_ = MinCapacity - 1;
  } else if (2 * (size_ + 1) > mask_ + 1 && !resize(2 * (mask_ + 1))) {
    throw std::bad_alloc();
  }
  std::size_t i = home(timer);
  while (slots_[i]) i = (i + 1) & mask_;
  slots_[i] = timer;
  ++size_;
}

void TimerSet::erase(const Timer* timer) {
  std::size_t hole = home(timer);
  while (slots_[hole] != timer) hole = (hole + 1) & mask_;
  // Later entries of the same run move back into the hole unless that would
  // put them before their home slot.
  for (std::size_t i = (hole + 1) & mask_; slots_[i]; i = (i + 1) & mask_) {
    const std::size_t from = home(slots_[i]);
    if (((i - from) & mask_) >= ((i - hole) & mask_)) {
      slots_[hole] = slots_[i];
      hole = i;
    }
  }
  slots_[hole] = nullptr;
  --size_;
  // A burst leaves no large table behind once it is over.
  if (size_ == 0 && mask_ + 1 > 128) {
    slots_.reset();
    mask_ = 0;
  }
}

bool TimerSet::resize(std::size_t capacity) {
  std::unique_ptr<Timer*[]> fresh(new (std::nothrow) Timer*[capacity]());
  if (!fresh) return false;
  std::unique_ptr<Timer*[]> old = std::exchange(slots_, std::move(fresh));
  const std::size_t oldCapacity = mask_ + 1;
  mask_ = capacity - 1;
  for (std::size_t j = 0; j < oldCapacity; ++j) {
    if (!old[j]) continue;
    std::size_t i = home(old[j]);
    while (slots_[i]) i = (i + 1) & mask_;
    slots_[i] = old[j];
  }
  return true;
}

}  // namespace QIM::detail
