// The enciphered settings file: the text of a BufferConfigurationFile,
// enciphered with TEA (ECB, 32 cycles, big-endian words) under a key compiled
// into the library, followed by one byte counting the zero bytes of padding.
// This keeps settings from casual reading; it is not protection against a
// determined reader, who can recover the key from the program.
//
// The key comes from the build: the CMake cache variable QIMMISC_SETTINGS_KEY
// (32 hexadecimal digits) or QIMMISC_SETTINGS_KEY_FILE (a file outside the
// source tree holding them). The digits are the 16 key bytes in order; each
// group of 8 digits, read as a big-endian number, is one key word k0..k3
// ("00112233..." gives k0 = 0x00112233). Without either setting a fixed
// development key is built in, and configuring says so.
//
// A text that cannot be encoded as UTF-8 is not written (see
// BufferConfigurationFile). A damaged file is never read outside its bytes:
// a ciphertext that is not a whole number of blocks is deciphered as if
// padded with zero bytes. Nothing checks the key: a file enciphered under
// another key (or damaged) with a plausible padding byte deciphers to bytes
// that are almost never valid UTF-8, and so loads as no sections, with an
// ERROR line.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "qimmisc/BufferConfigurationFile.h"
#include "qimmisc/Export.h"

namespace QIM {

/// A BufferConfigurationFile whose file on disk is enciphered. Only loading
/// and write(path) differ; reads, setters and sections are the base class's.
class QIMMISC_API EncryptionConfigurationFile : public BufferConfigurationFile {
 public:
  EncryptionConfigurationFile();
  ~EncryptionConfigurationFile() override;

  /// Reads and deciphers `path`. A missing file throws FileNotFoundException;
  /// a damaged padding byte logs "invalid padding count" and keeps the
  /// previous content (see lastLoadDamaged).
  void loadConfigurationFile(const std::wstring& path) override;
  /// Writes the enciphered form to `path`.
  void write(const std::wstring& path) override;
  using BufferConfigurationFile::write;

  /// Loads `source` as a plain settings file and writes it enciphered to
  /// `target`.
  void encryptIniFile(const std::wstring& source, const std::wstring& target);

  /// True when the last load found an invalid padding count and so kept the
  /// previous content.
  bool lastLoadDamaged() const;

 protected:
  /// Deciphers rawBuffer_ and parses its text; a damaged padding count
  /// keeps the sections as they were. Needs lock_.
  void decryptFromBuffer();
  /// Fills rawBuffer_ with the enciphered form of the sections; false (and
  /// rawBuffer_ empty) when the text cannot be encoded.
  bool encryptToBuffer();

 private:
  /// The key words k0..k3.
  std::unique_ptr<std::uint32_t[]> cryptoTEA_;
  std::atomic<bool> lastLoadDamaged_{false};
};

}  // namespace QIM
