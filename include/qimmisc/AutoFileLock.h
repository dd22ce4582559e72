// A lock file held for the lifetime of an object: the first object (in this
// process or any other) to create the file holds it, later ones see it held.
#pragma once

#include <memory>
#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// Creates the file at `path` exclusively for writing and keeps it open;
/// the destructor closes and deletes it, but only when this object holds it.
/// On Windows the file is opened without sharing; on Linux it also carries a
/// non-blocking exclusive lock, and a file another holder has locked is
/// neither truncated nor deleted.
class QIMMISC_API AutoFileLock {
 public:
  explicit AutoFileLock(const std::wstring& path);
  ~AutoFileLock();
  AutoFileLock(const AutoFileLock&) = delete;
  AutoFileLock& operator=(const AutoFileLock&) = delete;

  /// True when this object holds the lock file.
  bool isLocked() const;

 private:
  struct Record;
  std::unique_ptr<Record> record_;
};

}  // namespace QIM
