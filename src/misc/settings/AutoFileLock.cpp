#include "qimmisc/AutoFileLock.h"

#include "settings/AutoFileLock.h"

namespace QIM {

struct AutoFileLock::Record {
  std::wstring path;
  std::intptr_t handle;
};

AutoFileLock::AutoFileLock(const std::wstring& path)
    : record_(new Record{path, detail::acquireLockFile(path)}) {}

AutoFileLock::~AutoFileLock() {
  if (isLocked()) detail::releaseLockFile(record_->handle, record_->path);
}

bool AutoFileLock::isLocked() const { return record_ && record_->handle != detail::kNoLockHandle; }

}  // namespace QIM
