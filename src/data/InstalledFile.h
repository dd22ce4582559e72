// The settings files the client installs beside itself.
#pragma once

#include <string>

namespace QIM {
namespace Data {
namespace detail {

// The installation folder + `relative`, a name written with '\\' between
// its parts ("data\\Ringtone.ini"), given the platform's separator.
std::wstring installedFile(const wchar_t* relative);

}  // namespace detail
}  // namespace Data
}  // namespace QIM
