// Replacing a file whole, so that a crash or a power loss leaves either the
// old file or the new one: the bytes go to a new file in the same folder,
// are flushed to disk, and the new file is then renamed over the target.
#pragma once

#include <cstddef>
#include <string>

#include "qimmisc/Export.h"

namespace QIM::detail {

/// How a replacement ended.
struct ReplaceResult {
  bool ok = false;
  /// The failure was a denied access (Windows error 5, EACCES/EPERM/EROFS).
  bool accessDenied = false;
  /// The OS error of the failed step.
  unsigned long error = 0;
  /// The failed step, for the log: "create", "write", "flush" or "replace".
  const char* step = "";
};

/// Writes `size` bytes to `path` through a temporary file beside it. On any
/// failure the temporary file is removed and `path` is left as it was. An
/// existing target that may not be written is refused (as opening it for
/// writing would be), though the rename itself would not need that right.
ReplaceResult replaceFileAtomically(const std::wstring& path, const char* data, std::size_t size);

/// A name for the temporary file beside `path`, unique in this process and
/// across processes: path + ".~" + process id + "-" + a counter.
std::wstring temporaryNameBeside(const std::wstring& path);

/// Test hook: the next replacement stops after writing `bytes` bytes of its
/// temporary file and fails there; a negative count disarms it.
QIMMISC_API void failNextReplaceAfter(long long bytes);

/// Takes the armed count (or -1) and disarms the hook.
long long takeInjectedFailure();

}  // namespace QIM::detail
