// Build information: values fixed when the library is built (CMake cache
// variables QIMMISC_BUILD_*). A value the build leaves empty falls back:
// version "10.4", number "0", date and source "VS BUILD", copyright "2009",
// mode "Standard build".
#pragma once

#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// Whether this is a security-hardened build; always false.
QIMMISC_API bool isBuildSecure();
/// The product version, "10.4".
QIMMISC_API std::wstring getBuildVersion();
/// The build number, "1680".
QIMMISC_API std::wstring getBuildNumber();
/// The build date as yyyymmdd, "20171127".
QIMMISC_API std::wstring getBuildDate();
/// The copyright year, "2017".
QIMMISC_API std::wstring getCopyrightYear();
/// The build mode, "Standard build".
QIMMISC_API std::wstring getBuildMode();
/// One line naming the build machine, source stream and baseline.
QIMMISC_API std::wstring getBuildSource();

}  // namespace QIM
