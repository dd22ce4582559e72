#include "qimmisc/EncryptionConfigurationFile.h"

#include <ace/Guard_T.h>

#include <cstring>
#include <utility>

#include "qimmisc/StringUtils.h"
#include "qimmisc/Trace.h"
#include "settings/SettingsKey.h"
#include "settings/Tea.h"

namespace QIM {

EncryptionConfigurationFile::EncryptionConfigurationFile()
    : cryptoTEA_(std::make_unique<std::uint32_t[]>(4)) {
  detail::settingsKeyWords(cryptoTEA_.get());
}

EncryptionConfigurationFile::~EncryptionConfigurationFile() {
  if (cryptoTEA_) {
    volatile std::uint32_t* key = cryptoTEA_.get();
    for (int i = 0; i < 4; ++i) key[i] = 0;
  }
}

void EncryptionConfigurationFile::loadConfigurationFile(const std::wstring& path) {
  QIM_ENTRY();
  ACE_Guard<ACE_Thread_Mutex> lock(lock_);
  lastLoadDamaged_ = false;
  fileName_ = path;
  loadRawFileIntoBuffer(path, true);
  decryptFromBuffer();
  std::string().swap(rawBuffer_);
}

void EncryptionConfigurationFile::write(const std::wstring& path) {
  QIM_ENTRY();
  if (encryptToBuffer()) writeBuffer(path);
  std::string().swap(rawBuffer_);
}

void EncryptionConfigurationFile::encryptIniFile(const std::wstring& source,
                                                 const std::wstring& target) {
  BufferConfigurationFile::loadConfigurationFile(source);
  write(target);
}

bool EncryptionConfigurationFile::lastLoadDamaged() const { return lastLoadDamaged_; }

void EncryptionConfigurationFile::decryptFromBuffer() {
  QIM_ASSERT_AS(cryptoTEA_ != nullptr, "cryptoTEA_!=NULL", "Crypto TEA class is NULL");
  lastLoadDamaged_ = false;
  if (!cryptoTEA_ || rawBuffer_.empty()) return;
  const long length = static_cast<long>(rawBuffer_.size()) - 1;
  const long padding = static_cast<signed char>(rawBuffer_.back());
  if (padding > length || padding < 0) {
    QIM_ERROR("invalid padding count");
    lastLoadDamaged_ = true;
    return;
  }
  // Whole blocks, zero-filled, so a damaged length never reads beyond.
  std::string plain(rawBuffer_);
  plain.resize(static_cast<std::size_t>((length + 7) / 8 * 8 + 1), '\0');
  if (length > 0) {
    detail::teaDecipher(reinterpret_cast<unsigned char*>(plain.data()), length, cryptoTEA_.get());
  }
  plain.resize(static_cast<std::size_t>(length - padding));
  plain.resize(std::strlen(plain.c_str()));  // the text ends at its first NUL
  std::wstring text = fromUtf8(plain);
  if (text.empty() && !plain.empty()) {
    QIM_ERROR(toUtf8(fileName_) << " does not decipher to UTF-8; it loads as no sections");
  }
  parse(std::move(text));
}

bool EncryptionConfigurationFile::encryptToBuffer() {
  QIM_ASSERT_AS(cryptoTEA_ != nullptr, "cryptoTEA_!=NULL", "Crypto TEA class is NULL");
  rawBuffer_.clear();
  if (!cryptoTEA_) return false;
  const std::wstring text = buildText();
  const std::string utf8 = toUtf8(text);
  if (utf8.empty() && !text.empty()) {
    QIM_ERROR("Not written: the settings hold text that is not valid Unicode");
    return false;
  }
  const std::size_t n = utf8.size();
  const std::size_t padding = (8 - n % 8) % 8;
  rawBuffer_.assign(n + padding + 1, '\0');
  std::memcpy(rawBuffer_.data(), utf8.data(), n);
  detail::teaEncipher(reinterpret_cast<unsigned char*>(rawBuffer_.data()),
                      static_cast<long>(n + padding), cryptoTEA_.get());
  rawBuffer_.back() = static_cast<char>(padding);
  return true;
}

}  // namespace QIM
