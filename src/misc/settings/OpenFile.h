// Opening a settings file for reading by its wide path.
#pragma once

#include <cstdio>
#include <string>

namespace QIM::detail {

/// Opens `path` to read bytes ("rb"); null on failure, with the OS error
/// left for GetLastErrorId. Linux paths are the UTF-8 bytes of `path`.
std::FILE* openForReading(const std::wstring& path);

/// The length of the open file in bytes, or -1.
long long fileLength(std::FILE* file);

}  // namespace QIM::detail
