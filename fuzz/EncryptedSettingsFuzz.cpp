// Fuzz target for the enciphered settings loader: any bytes, as a file's
// content, decipher without a crash or a read past the end; the load is
// refused exactly when the padding byte is impossible; and what loads
// enciphers to a well-formed file that deciphers to the same text.
#include <ace/Guard_T.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzCheck.h"
#include "qimmisc/EncryptionConfigurationFile.h"

namespace {

using QIM::fuzz::check;

class RawFile : public QIM::EncryptionConfigurationFile {
 public:
  void decipher(std::string bytes) {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    rawBuffer_ = std::move(bytes);
    decryptFromBuffer();
  }
  std::string encipher() {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    const bool built = encryptToBuffer();
    std::string bytes;
    bytes.swap(rawBuffer_);
    return built ? bytes : std::string();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  QIM::fuzz::quietErrors();
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  RawFile file;
  file.decipher(bytes);
  if (size == 0) return 0;

  const long padding = static_cast<signed char>(bytes.back());
  const bool impossible = padding < 0 || padding > static_cast<long>(size) - 1;
  check(file.lastLoadDamaged() == impossible, "refused exactly for an impossible padding byte");
  if (impossible) return 0;

  const std::wstring text = file.toText();
  const std::string enciphered = file.encipher();
  check(!enciphered.empty(), "loaded settings encipher");
  check(enciphered.size() % 8 == 1 && static_cast<unsigned char>(enciphered.back()) < 8,
        "whole blocks and a padding byte below 8");
  RawFile again;
  again.decipher(enciphered);
  check(!again.lastLoadDamaged(), "an enciphered file loads");
  const std::string settled = again.encipher();
  RawFile third;
  third.decipher(settled);
  check(third.toText() == again.toText(), "enciphering round trips");
  static_cast<void>(text);
  return 0;
}
