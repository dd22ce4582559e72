#include "settings/AtomicFile.h"

#include <ace/OS_NS_unistd.h>

#include <atomic>

namespace QIM::detail {
namespace {
std::atomic<long long> injectedFailure{-1};
std::atomic<unsigned long> temporaryCounter{0};
}  // namespace

std::wstring temporaryNameBeside(const std::wstring& path) {
  return path + L".~" + std::to_wstring(static_cast<long long>(ACE_OS::getpid())) + L"-" +
         std::to_wstring(temporaryCounter.fetch_add(1) + 1);
}

void failNextReplaceAfter(long long bytes) { injectedFailure.store(bytes); }

long long takeInjectedFailure() { return injectedFailure.exchange(-1); }

}  // namespace QIM::detail
