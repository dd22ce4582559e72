#include "qimmisc/ObjectManagement.h"

#include <cstdlib>
#include <memory>

#if defined(__GNUG__)
#include <cxxabi.h>
#endif

namespace QIM {
namespace detail {

std::string typeName(const std::type_info& type) {
#if defined(__GNUG__)
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  if (status == 0 && demangled) return demangled.get();
#endif
  return type.name();
}

}  // namespace detail
}  // namespace QIM
