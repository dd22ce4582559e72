#include "qimmisc/BufferConfigurationFile.h"

#include <ace/Guard_T.h>

#include <climits>
#include <cstring>
#include <cwctype>
#include <utility>

#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "qimmisc/SystemPaths.h"
#include "qimmisc/Trace.h"
#include "settings/AtomicFile.h"
#include "settings/OpenFile.h"
#include "settings/SectionStore.h"
#include "settings/SettingsParser.h"
#include "settings/WriteFailureNotifier.h"

namespace QIM {
namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;

// What the C runtime's text mode does to CR LF on Windows, done here on
// every platform so that a file reads the same everywhere. Returns the new
// length.
std::size_t foldCrLf(char* bytes, std::size_t size) {
  char* const end = bytes + size;
  char* out = static_cast<char*>(std::memchr(bytes, '\r', size));
  if (!out) return size;
  for (const char* in = out; in < end; ++in) {
    if (*in == '\r' && in + 1 < end && in[1] == '\n') continue;
    *out++ = *in;
  }
  return static_cast<std::size_t>(out - bytes);
}

// "%d": optional white space, an optional sign, at least one digit; the
// digits end at the first other character. Out of range counts as no number.
bool scanDecimal(const std::wstring& text, int* value) {
  const wchar_t* p = text.c_str();
  while (*p && std::iswspace(static_cast<std::wint_t>(*p))) ++p;
  const bool negative = *p == L'-';
  if (*p == L'-' || *p == L'+') ++p;
  if (*p < L'0' || *p > L'9') return false;
  long long magnitude = 0;
  for (; *p >= L'0' && *p <= L'9'; ++p) {
    magnitude = magnitude * 10 + (*p - L'0');
    if (magnitude > static_cast<long long>(INT_MAX) + 1) return false;
  }
  const long long signedValue = negative ? -magnitude : magnitude;
  if (signedValue > INT_MAX) return false;
  *value = static_cast<int>(signedValue);
  return true;
}

}  // namespace

BufferConfigurationFile::BufferConfigurationFile()
    : sections_(std::make_unique<detail::SectionStore>()) {}

BufferConfigurationFile::~BufferConfigurationFile() = default;

void BufferConfigurationFile::loadConfigurationFile(const std::wstring& path) {
  QIM_ENTRY();
  Guard lock(lock_);
  fileName_ = path;
  loadRawFileIntoBuffer(path, false);
  if (!rawBuffer_.empty()) {
    // The text ends at the first NUL (text mode always stores one).
    rawBuffer_.resize(std::strlen(rawBuffer_.c_str()));
    std::wstring text = fromUtf8(rawBuffer_);
    if (text.empty() && !rawBuffer_.empty()) {
      QIM_ERROR(toUtf8(path) << " is not valid UTF-8; it loads as no sections");
    }
    parse(std::move(text));
  }
  std::string().swap(rawBuffer_);
}

void BufferConfigurationFile::loadRawFileIntoBuffer(const std::wstring& path, bool binary) {
  rawBuffer_.clear();
  std::FILE* const file = fileExists(path) ? detail::openForReading(path) : nullptr;
  const long long fileSize = file ? detail::fileLength(file) : -1;
  if (fileSize < 0) {
    if (file) std::fclose(file);
    QIM_THROW(FileNotFoundException, "File not found",
              "OS ERROR: " << DbgMsg::GetLastErrorId() << " errno: " << DbgMsg::GetErrno()
                           << " path: " << toUtf8(path));
  }
  rawBuffer_.resize(static_cast<std::size_t>(fileSize) + (binary ? 0 : 1));
  const std::size_t wanted = static_cast<std::size_t>(fileSize);
  std::size_t sizeRead = std::fread(rawBuffer_.data(), 1, wanted, file);
  // A file that grew since its length was taken: what lies beyond is not read.
  if (sizeRead == wanted && std::fgetc(file) != EOF) ++sizeRead;
  std::fclose(file);
  QIM_ASSERT_AS(sizeRead <= wanted, "sizeRead <= fileSize",
                "read more data than what the file have.");
  if (sizeRead > wanted) sizeRead = wanted;
  if (binary) {
    rawBuffer_.resize(sizeRead);
  } else {
    rawBuffer_.resize(foldCrLf(rawBuffer_.data(), sizeRead));
    rawBuffer_.push_back('\0');
  }
}

void BufferConfigurationFile::parse(std::wstring text) {
  detail::parseSettingsText(std::move(text), *sections_, fileName_);
}

int BufferConfigurationFile::getInt(const std::wstring& section, const std::wstring& key,
                                    int defaultValue) {
  const std::wstring text = getString(section, key, std::wstring());
  int value = defaultValue;
  if (!text.empty()) scanDecimal(text, &value);
  return value;
}

void BufferConfigurationFile::setInt(const std::wstring& section, const std::wstring& key,
                                     int value) {
  setString(section, key, intToWString(value));
}

bool BufferConfigurationFile::getBool(const std::wstring& section, const std::wstring& key,
                                      bool defaultValue) {
  std::wstring text = getString(section, key, std::wstring());
  lowercase(text);
  if (text == L"true") return true;
  if (text == L"false") return false;
  return defaultValue;
}

void BufferConfigurationFile::setBool(const std::wstring& section, const std::wstring& key,
                                      bool value) {
  setString(section, key, boolToWString(value));
}

std::wstring BufferConfigurationFile::getString(const std::wstring& section,
                                                const std::wstring& key,
                                                std::wstring defaultValue) {
  Guard lock(lock_);
  const detail::Text* value = sections_->find(sections_->obtain(section), key);
  return value ? std::wstring(value->view()) : std::move(defaultValue);
}

void BufferConfigurationFile::setString(const std::wstring& section, const std::wstring& key,
                                        std::wstring value) {
  Guard lock(lock_);
  sections_->assign(sections_->obtain(section), key, value);
}

void BufferConfigurationFile::write(const std::wstring& path) {
  QIM_ENTRY();
  Guard lock(lock_);
  const std::wstring text = buildText();
  rawBuffer_ = toUtf8(text);
  if (rawBuffer_.empty() && !text.empty()) {
    QIM_ERROR(toUtf8(path) << " not written: the settings hold text that is not valid Unicode");
    return;
  }
  rawBuffer_.push_back('\0');
  writeBuffer(path);
  std::string().swap(rawBuffer_);
}

void BufferConfigurationFile::write() {
  std::wstring path;
  {
    Guard lock(lock_);
    path = fileName_;
  }
  write(path);  // through the virtual slot: a derived class's own form
}

void BufferConfigurationFile::writeBuffer(const std::wstring& path) {
  const detail::ReplaceResult result =
      detail::replaceFileAtomically(path, rawBuffer_.data(), rawBuffer_.size());
  if (result.ok) return;
  QIM_ERROR(toUtf8(path) << ": " << result.step << " failed, OS error " << result.error
                         << "; the file is unchanged");
  detail::notifyWriteFailure(path, result.accessDenied);
}

void BufferConfigurationFile::clearSection(const std::wstring& section) {
  Guard lock(lock_);
  sections_->empty(sections_->obtainExact(section));
}

void BufferConfigurationFile::setSection(const std::wstring& section, ConfigurationSection values) {
  Guard lock(lock_);
  sections_->replace(sections_->obtain(section), values);
}

ConfigurationSection BufferConfigurationFile::getSection(const std::wstring& section) {
  Guard lock(lock_);
  return detail::SectionStore::copyOf(sections_->obtain(section));
}

std::vector<std::wstring> BufferConfigurationFile::getSections() {
  Guard lock(lock_);
  return sections_->names();
}

std::wstring BufferConfigurationFile::toText() {
  Guard lock(lock_);
  return buildText();
}

std::wstring BufferConfigurationFile::buildText() const { return sections_->toText(); }

}  // namespace QIM
