#include "qimmisc/RefCounted.h"

#include <ace/Guard_T.h>
#include <ace/Thread_Mutex.h>

#include <algorithm>
#include <map>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "diagnostics/NoDestructor.h"
#include "qimmisc/ObjectManagement.h"
#include "qimmisc/Trace.h"

namespace QIM {

namespace {

// Ordinary lines of this module go to their own channel, closed unless
// asked for: every destruction writes one.
int refCountChannel() {
  static const int channel = DbgMsg::getChannelByName("REFCOUNT");
  return channel;
}

}  // namespace

SimpleRefCountedObject::SimpleRefCountedObject() noexcept : count_(1) {}

SimpleRefCountedObject::~SimpleRefCountedObject() {
  const long count = count_.load(std::memory_order_acquire);
  QIM_TRACE(refCountChannel(), "destroying refcounted object with refcount=" << count);
  QIM_ASSERT(count <= 1);
}

long SimpleRefCountedObject::addRef() noexcept {
  return count_.fetch_add(1, std::memory_order_relaxed) + 1;
}

long SimpleRefCountedObject::release() noexcept {
  // Release order so that whoever sees 0 and deletes sees every write made
  // under the other references.
  return count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
}

long SimpleRefCountedObject::count() const noexcept {
  return count_.load(std::memory_order_acquire);
}

namespace Net {

namespace {

// Live objects with their registration number, so reports list them oldest
// first whatever their addresses.
struct Registry {
  ACE_Thread_Mutex mutex_;
  std::map<const NetworkRefCounted*, unsigned long long> live_;
  unsigned long long next_ = 0;
};

Registry& registry() {
  // Never destroyed: objects may still be destroyed, and the shutdown check
  // run, while static destructors run.
  static detail::NoDestructor<Registry> instance;
  return *instance;
}

// The type names of the live objects, oldest first. Read under the lock so
// that no object is unregistered and freed while its type is read.
std::vector<std::string> liveTypeNames() {
  Registry& reg = registry();
  std::vector<std::pair<unsigned long long, std::string>> entries;
  {
    ACE_Guard<ACE_Thread_Mutex> lock(reg.mutex_);
    entries.reserve(reg.live_.size());
    for (const auto& [object, order] : reg.live_) {
      entries.emplace_back(order, detail::typeName(typeid(*object)));
    }
  }
  std::sort(entries.begin(), entries.end());
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (auto& entry : entries) names.push_back(std::move(entry.second));
  return names;
}

}  // namespace

NetworkRefCounted::NetworkRefCounted() {
  Registry& reg = registry();
  ACE_Guard<ACE_Thread_Mutex> lock(reg.mutex_);
  reg.live_.emplace(this, reg.next_++);
}

NetworkRefCounted::~NetworkRefCounted() {
  Registry& reg = registry();
  ACE_Guard<ACE_Thread_Mutex> lock(reg.mutex_);
  reg.live_.erase(this);
}

std::size_t NetworkRefCounted::liveCount() {
  Registry& reg = registry();
  ACE_Guard<ACE_Thread_Mutex> lock(reg.mutex_);
  return reg.live_.size();
}

void NetworkRefCounted::logUsage() {
  const std::vector<std::string> names = liveTypeNames();
  QIM_TRACE(refCountChannel(), ">> NetworkRefCounted objects alive: " << names.size());
  for (const std::string& name : names) {
    QIM_TRACE(refCountChannel(), "   NetworkRefCounted " << name);
  }
}

void NetworkRefCounted::shutdownSanityCheck() {
  const std::vector<std::string> names = liveTypeNames();
  if (names.empty()) return;
  QIM_ERROR(names.size() << " undestroyed NetworkRefCounted objects!");
  for (const std::string& name : names) {
    QIM_ERROR("   NetworkRefCounted " << name);
  }
}

}  // namespace Net
}  // namespace QIM
