#include "settings/WriteFailureNotifier.h"

#include <mutex>
#include <utility>

#include "qimmisc/BufferConfigurationFile.h"

namespace QIM {
namespace {

std::mutex notifierMutex;

WriteFailureNotifier& installedNotifier() {
  static WriteFailureNotifier notifier;  // empty: the platform's own
  return notifier;
}

}  // namespace

WriteFailureNotifier setWriteFailureNotifier(WriteFailureNotifier notifier) {
  std::lock_guard<std::mutex> lock(notifierMutex);
  std::swap(installedNotifier(), notifier);
  return notifier;
}

namespace detail {

void notifyWriteFailure(const std::wstring& path, bool accessDenied) {
  const std::wstring text =
      path + L" could not be opened for writing. " +
      (accessDenied ? L"Check you have sufficient privileges." : L"Check file actually exists.");
  WriteFailureNotifier notifier;
  {
    std::lock_guard<std::mutex> lock(notifierMutex);
    notifier = installedNotifier();
  }
  // Called without the lock: a modal box may wait on the user for long.
  if (notifier) {
    notifier(text, L"Error");
  } else {
    showWriteFailure(text, L"Error");
  }
}

}  // namespace detail
}  // namespace QIM
