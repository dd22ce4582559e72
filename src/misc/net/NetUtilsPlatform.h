// What the URL predicates ask of the platform.
#pragma once

#include <string>

namespace QIM::net {

// Whether the shell (or its equivalent) sees a "file:" URL.
bool isFileUrlPlatform(const std::wstring& url);

}  // namespace QIM::net
