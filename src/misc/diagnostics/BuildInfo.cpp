#include "qimmisc/BuildInfo.h"

#include "BuildInfoValues.h"

namespace QIM {

namespace {
std::wstring valueOr(const wchar_t* value, const wchar_t* fallback) {
  return *value ? value : fallback;
}
}  // namespace

bool isBuildSecure() { return false; }

std::wstring getBuildVersion() { return valueOr(QIMMISC_BUILD_VERSION_VALUE, L"10.4"); }

std::wstring getBuildNumber() { return valueOr(QIMMISC_BUILD_NUMBER_VALUE, L"0"); }

std::wstring getBuildDate() { return valueOr(QIMMISC_BUILD_DATE_VALUE, L"VS BUILD"); }

std::wstring getCopyrightYear() { return valueOr(QIMMISC_COPYRIGHT_YEAR_VALUE, L"2009"); }

std::wstring getBuildMode() { return valueOr(QIMMISC_BUILD_MODE_VALUE, L"Standard build"); }

std::wstring getBuildSource() { return valueOr(QIMMISC_BUILD_SOURCE_VALUE, L"VS BUILD"); }

}  // namespace QIM
