// The assertion line every module writes on a failed condition, and the
// error codes it reports.
#include <cerrno>

#include "diagnostics/DbgMsgPlatform.h"
#include "qimmisc/DbgMsg.h"

namespace QIM {
namespace DbgMsg {

namespace {

void writeAssertion(const Locus& locus, const char* condition, const std::string* message) {
  // Read both codes before anything here can change them.
  const unsigned int lastError = GetLastErrorId();
  const int err = GetErrno();
  if (isOpen(ErrorId)) {
    Tracer line(locus, LLT_Default());
    line << "Assertion failed: \"" << condition << '"';
    if (message) line << " : " << *message;
    line << "  OS ERROR: " << lastError << " errno: " << err;
  }
  printBackTrace();
}

}  // namespace

unsigned int GetLastErrorId() {
  const unsigned int os = platform::osLastError();
  const int err = errno;
  return err != 0 ? static_cast<unsigned int>(err) : os;
}

int GetErrno() { return errno; }

namespace detail {

void assertionFailed(const Locus& locus, const char* condition) {
  writeAssertion(locus, condition, nullptr);
}

void assertionFailed(const Locus& locus, const char* condition, const std::string& message) {
  writeAssertion(locus, condition, &message);
}

}  // namespace detail
}  // namespace DbgMsg
}  // namespace QIM
