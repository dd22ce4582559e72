// The process-wide objects that the first QIMMiscApi::init creates and the
// last exit destroys. Each subsystem that owns such an object, or counts
// leaked objects, registers its step here, in the order given.
#pragma once

namespace QIM {
namespace detail {

// First init: the main settings, then the ringtone settings.
void createLibraryObjects();
// Last exit: ringtone settings, main settings, then the leak checks of the
// thread-owning classes.
void destroyLibraryObjects();

}  // namespace detail
}  // namespace QIM
