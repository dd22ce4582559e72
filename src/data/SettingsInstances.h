// The process-wide settings objects, made by the first QIMMiscApi::init and
// destroyed by the last exit (diagnostics/LibraryObjects.cpp orders them).
#pragma once

namespace QIM {
namespace Data {
namespace detail {

// Makes the main settings instance and reads getVELDerIniPath() into it.
void createVelderIni();
void destroyVelderIni();
// Makes an empty ringtone instance, destroying any earlier one.
void createRingtoneIni();
void destroyRingtoneIni();

}  // namespace detail
}  // namespace Data
}  // namespace QIM
