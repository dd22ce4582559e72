// String interpreters: objects that rewrite a text by replacing tags in it.
#pragma once

#include <cstddef>
#include <string>

#include "qimmisc/Export.h"

namespace QIM {

/// The client's handler of the layer above; interpreters only pass it on.
class IUpperLayerProvHandler {
 public:
  virtual ~IUpperLayerProvHandler() = default;
};

/// The client's provisioning action; interpreters only pass it on. The
/// client defines the values; this library names only the neutral one.
enum NetProvAction : int { NetProvActionNone = 0 };

/// Abstract interpreter; subclasses say how a text is rewritten.
class QIMMISC_API BaseStringInterpreter {
 public:
  virtual ~BaseStringInterpreter();

  /// The text with its tags replaced. `handler` and `action` are context
  /// for interpreters that need it, passed through untouched.
  std::wstring interpretString(const std::wstring& text, IUpperLayerProvHandler* handler,
                               NetProvAction action) const;

 protected:
  virtual std::wstring doInterpretString(const std::wstring& text,
                                         IUpperLayerProvHandler* handler,
                                         NetProvAction action) const = 0;

  /// Replaces every occurrence of `pattern` (case-sensitive), searching on
  /// after each inserted replacement so that it is never searched again.
  /// Returns the number of replacements; an empty pattern replaces nothing.
  static std::size_t replaceAll(std::wstring& text, const std::wstring& pattern,
                                const std::wstring& replacement);
};

}  // namespace QIM
