// The enciphered settings file: the text of a BufferConfigurationFile,
// enciphered with TEA (ECB, 32 cycles, big-endian words) under a key compiled
// into the library, followed by one byte counting the zero bytes of padding.
// This keeps settings from casual reading; it is not protection against a
// determined reader, who can recover the key from the program.
#pragma once

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
};

}  // namespace QIM
