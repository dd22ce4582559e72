// The library's exception types. Exceptions are thrown only where a caller
// must not go on (a resource that cannot be made, a file that is missing);
// everything else is reported by an assertion line and execution continues.
#pragma once

#include <exception>

#include "qimmisc/Export.h"

namespace QIM {

/// Base of the library's exceptions. Both texts are stored as given, not
/// copied: pass literals or texts that outlive the exception. The first text
/// names the exception's class; what() returns the message.
class QIMMISC_API QIMException : public std::exception {
 public:
  QIMException(const char* first, const char* message) noexcept
      : first_(first), message_(message) {}
  const char* what() const noexcept override;
  /// The first constructor text: the name of the class that was thrown.
  const char* first() const noexcept { return first_; }

 private:
  const char* first_;
  const char* message_;
};

// Subclasses carry the messages listed with each. The first text is the
// class name.
#define QIM_DECLARE_EXCEPTION_(Name)                                      \
  class QIMMISC_API Name : public QIMException {                          \
   public:                                                                \
    explicit Name(const char* message) noexcept                           \
        : QIMException(#Name, message) {}                                 \
  }

/// "File not found".
QIM_DECLARE_EXCEPTION_(FileNotFoundException);
/// "Failed to serialize an std::wstring", "Failed to deserialize an std::wstring".
QIM_DECLARE_EXCEPTION_(SerializationException);
/// "Flush error", "Write error", "Clear error".
QIM_DECLARE_EXCEPTION_(PreferencesWriteException);
/// "Profile does not exist".
QIM_DECLARE_EXCEPTION_(InvalidProfileNameException);
/// "Error deleting profile".
QIM_DECLARE_EXCEPTION_(DeleteProfileException);
/// "Profile is in use", "Error renaming profile (in use)".
QIM_DECLARE_EXCEPTION_(ProfileInUseException);
/// "Error creating profile".
QIM_DECLARE_EXCEPTION_(CreateProfileException);
/// "Profile already exists".
QIM_DECLARE_EXCEPTION_(ProfileAlreadyExistsException);
/// "Error renaming profile".
QIM_DECLARE_EXCEPTION_(RenameProfileException);

#undef QIM_DECLARE_EXCEPTION_

}  // namespace QIM
