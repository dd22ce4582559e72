#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "qimmisc/SecureBuffer.h"
#include "settings/WipeObserver.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Reaches the stored bytes and the flag that the string classes keep to
// themselves.
template <class CharT>
class Probe : public QIM::BasicSecureString<CharT> {
 public:
  using QIM::BasicSecureString<CharT>::BasicSecureString;
  Bytes stored() const { return Bytes(this->buffer_.begin(), this->buffer_.end()); }
  bool isProtected() const { return this->isProtected_; }
  void unprotect() { this->unProtectBuffer(); }
  void replace(const Bytes& bytes) {
    this->clearBuffer();
    this->buffer_.assign(bytes.begin(), bytes.end());
  }
};

// The plain layout: 32-bit count, payload, zeros to a multiple of 8.
template <class CharT>
Bytes layoutOf(const std::basic_string<CharT>& value) {
  if (value.empty()) return {};
  const auto count = static_cast<std::uint32_t>(value.size() * sizeof(CharT));
  Bytes bytes((4 + count + 7) / 8 * 8, 0);
  std::memcpy(bytes.data(), &count, 4);
  std::memcpy(bytes.data() + 4, value.data(), count);
  return bytes;
}

// Sets `value` over a longer secret and reads it back; get() must leave the
// stored bytes as they were, and deciphered they must be the layout.
// Returns the bytes as stored.
template <class CharT>
Bytes expectStoredAndRead(const std::basic_string<CharT>& value) {
  Probe<CharT> secret{QIM::BasicSelfCleanString<CharT>(2000, CharT('o'))};
  secret.set(QIM::BasicSelfCleanString<CharT>(value.data(), value.size()));
  EXPECT_EQ(secret.empty(), value.empty());
  const bool wasProtected = secret.isProtected();
  const Bytes stored = secret.stored();
  const auto back = secret.get();
  EXPECT_EQ(std::basic_string<CharT>(back.data(), back.size()), value);
  EXPECT_EQ(secret.isProtected(), wasProtected);
  EXPECT_EQ(secret.stored(), stored);
#ifndef _WIN32
  // Linux always enciphers, so the plain layout never rests in memory.
  EXPECT_TRUE(value.empty() || (wasProtected && stored != layoutOf(value)));
#endif
  secret.unprotect();
  EXPECT_EQ(secret.stored(), layoutOf(value));
  return stored;
}

TEST(SecureStringTest, StoresCountPayloadAndPaddingAndGivesTheValueBack) {
  // "abcd": count and payload fill one block exactly.
  // clang-format off
  const std::string narrow[] = {"", "a", "abcd", "abcde", "twelve bytes",
                                std::string("nul\0inside", 10), std::string(1000, 'x')};
  // clang-format on
  for (const std::string& value : narrow) {
    SCOPED_TRACE(::testing::PrintToString(value));
    const Bytes stored = expectStoredAndRead(value);
    // encryptString gives the same bytes, and decryptString takes them back.
    EXPECT_EQ(QIM::encryptString(value), std::string(stored.begin(), stored.end()));
    const QIM::SelfCleanString back = QIM::decryptString(QIM::encryptString(value));
    EXPECT_EQ(std::string(back.data(), back.size()), value);
  }
  // Every wchar_t is stored whole, a lone surrogate too.
  const std::wstring wide[] = {L"", L"ab", L"\u00E4\u20AC\U0001D11E",
                               std::wstring(1, static_cast<wchar_t>(0xD800)),
                               std::wstring(300, L'\u00DF')};
  for (const std::wstring& value : wide) expectStoredAndRead(value);
}

TEST(SecureStringTest, DamagedCountsGiveEmpty) {
  // A count with the buffer size, and what get() gives.
  const std::tuple<std::uint32_t, std::size_t, const char*> cases[] = {
      {1, 4, ""}, {0, 8, ""}, {5, 8, ""}, {0xFFFFFFFFu, 16, ""}, {4, 8, "pppp"}};
  for (const auto& [count, size, value] : cases) {
    Bytes bytes(size, 'p');
    std::memcpy(bytes.data(), &count, 4);
    Probe<char> secret;
    secret.replace(bytes);
    EXPECT_EQ(secret.get(), value) << count << " in " << size << " bytes";
  }
  Probe<char> shorter;
  shorter.replace(Bytes(3, 1));
  EXPECT_TRUE(shorter.get().empty());
}

TEST(SecureStringTest, EqualityComparesFlagAndStoredBytes) {
  const QIM::SelfCleanString value("same secret");
  Probe<char> first{value}, plain{value};
  const Probe<char> second{value};
  EXPECT_TRUE(first == second);  // two protected copies, one secret
  EXPECT_FALSE(first == Probe<char>{QIM::SelfCleanString("same secreT")});
  EXPECT_TRUE(QIM::SecureString() == QIM::SecureString());
  plain.unprotect();
  // Plain and enciphered copies differ, unless nothing could be enciphered.
  EXPECT_EQ(plain == second, !second.isProtected());
  first.unprotect();
  EXPECT_TRUE(plain == first);
}

TEST(DecryptStringTest, RejectsLengthsThatAreNoWholeBlocks) {
  const std::string valid = QIM::encryptString("0123456789");  // 16 bytes
  ASSERT_EQ(valid.size(), 16u);
  for (std::size_t length : {0u, 1u, 4u, 7u, 12u, 15u}) {
    EXPECT_TRUE(QIM::decryptString(valid.substr(0, length)).empty()) << length;
  }
  EXPECT_TRUE(QIM::decryptString(std::string(12, '\0')).empty());
}

// Whether each block the allocator freed was already zero.
std::vector<bool> wipedBlocks;
void observeFreed(const void* block, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  wipedBlocks.push_back(std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; }));
}

TEST(SelfCleanStringTest, EveryFreedHeapBlockIsWiped) {
  wipedBlocks.clear();
  const QIM::detail::WipeObserver previous = QIM::detail::setWipeObserver(&observeFreed);
  {
    QIM::SelfCleanString secret(40, 's');
    secret.append(200, 't');  // reallocates: the first block is freed
    QIM::SelfCleanString copy = secret;
    copy = QIM::SelfCleanString(500, 'u');  // replaces copy's block
    QIM::SelfCleanWString wide(100, L'w');
    QIM::SecureString kept{QIM::SelfCleanString(64, 'k')};
    kept.set(QIM::SelfCleanString(300, 'k'));
  }
  QIM::detail::setWipeObserver(previous);
  EXPECT_GE(wipedBlocks.size(), 6u);
  EXPECT_EQ(std::count(wipedBlocks.begin(), wipedBlocks.end(), false), 0);
}

// The string's own storage is a byte array owned here, so what the
// destructor left in it can be read without touching freed memory.
template <class Build>
bool leavesNoTrace(Build build, const std::string& secret) {
  alignas(QIM::SelfCleanString) unsigned char storage[sizeof(QIM::SelfCleanString)];
  auto* text = new (storage) QIM::SelfCleanString();
  build(*text);
  std::destroy_at(text);
  const std::string left(reinterpret_cast<const char*>(storage), sizeof storage);
  return left.find(secret) == std::string::npos;
}

TEST(SelfCleanStringTest, InlineStorageIsWipedOnDestruction) {
  EXPECT_TRUE(leavesNoTrace([](QIM::SelfCleanString& s) { s = "shortpw"; }, "shortpw"));
  // A short value left behind when the string moved to the heap.
  const auto grown = [](QIM::SelfCleanString& s) { s.assign("abcdefghijklm").append(100, '-'); };
  EXPECT_TRUE(leavesNoTrace(grown, "ijklm"));
  // Moved out: the source's inline storage keeps its old bytes until then.
  const auto moved = [](QIM::SelfCleanString& s) {
    const QIM::SelfCleanString taken(std::move(s = "xyzsecret"));
  };
  EXPECT_TRUE(leavesNoTrace(moved, "secret"));
}

}  // namespace
