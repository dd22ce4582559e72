#include "qimmisc/SecureBuffer.h"

namespace QIM {

namespace {
// The stored bytes themselves, which encryptString hands out and
// decryptString takes back.
class StoredBytes : public SecureString {
 public:
  std::string bytes() const { return std::string(buffer_.begin(), buffer_.end()); }

  void adoptProtected(const std::string& bytes) {
    clearBuffer();
    buffer_.assign(bytes.begin(), bytes.end());
    isProtected_ = true;
  }
};
}  // namespace

std::string encryptString(const std::string& plain) {
  if (plain.empty()) return {};
  StoredBytes secure;
  secure.set(SelfCleanString(plain.data(), plain.size()));
  return secure.bytes();
}

SelfCleanString decryptString(const std::string& bytes) {
  if (bytes.size() % 8 != 0) return {};
  StoredBytes secure;
  secure.adoptProtected(bytes);
  return secure.get();
}

}  // namespace QIM
