#include "qimmisc/SecureBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

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
  void replace(const Bytes& bytes, bool isProtected) {
    this->clearBuffer();
    this->buffer_.assign(bytes.begin(), bytes.end());
    this->isProtected_ = isProtected;
  }
};

// The plain layout: 32-bit count, payload, zeros to a multiple of 8.
template <class CharT>
Bytes layoutOf(const std::basic_string<CharT>& value) {
  if (value.empty()) return {};
  const auto count = static_cast<std::uint32_t>(value.size() * sizeof(CharT));
  const auto* countBytes = reinterpret_cast<const unsigned char*>(&count);
  const auto* payload = reinterpret_cast<const unsigned char*>(value.data());
  Bytes bytes(countBytes, countBytes + 4);
  bytes.insert(bytes.end(), payload, payload + count);
  bytes.resize((bytes.size() + 7) / 8 * 8, 0);
  return bytes;
}

std::string asString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

const std::string kNarrowCases[] = {
    "",
    "a",
    "abc",
    "abcd",  // count + payload fill exactly one block
    "abcde",
    "twelve bytes",  // two whole blocks
    "\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E",
    std::string("nul\0inside", 10),
    std::string(1000, 'x'),
};

const std::wstring kWideCases[] = {
    L"",
    L"a",
    L"ab",
    L"\u00E4\u20AC\U0001D11E",
    std::wstring(1, static_cast<wchar_t>(0xD800)),  // a lone surrogate survives
    std::wstring(L"nul\0inside", 10),
    std::wstring(300, L'\u00DF'),
};

template <class CharT>
void expectLayoutAndRoundTrip(const std::basic_string<CharT>& value) {
  Probe<CharT> secret{QIM::BasicSelfCleanString<CharT>(value.data(), value.size())};
  EXPECT_EQ(secret.empty(), value.empty());
  secret.unprotect();
  EXPECT_FALSE(secret.isProtected());
  EXPECT_EQ(secret.stored(), layoutOf(value));
  const auto back = secret.get();
  EXPECT_EQ(std::basic_string<CharT>(back.data(), back.size()), value);
}

TEST(SecureStringTest, StoresCountPayloadAndPaddingAndGivesTheValueBack) {
  for (const std::string& value : kNarrowCases) {
    SCOPED_TRACE(::testing::PrintToString(value));
    expectLayoutAndRoundTrip(value);
  }
}

TEST(SecureWStringTest, StoresEveryCharacterWholeAndGivesTheValueBack) {
  for (const std::wstring& value : kWideCases) {
    SCOPED_TRACE(value.size());
    expectLayoutAndRoundTrip(value);
  }
}

TEST(SecureStringTest, ProtectedBytesStayProtectedAcrossGet) {
  Probe<char> secret{QIM::SelfCleanString("a secret")};
  const bool wasProtected = secret.isProtected();
  const Bytes before = secret.stored();
  EXPECT_EQ(secret.get(), "a secret");
  EXPECT_EQ(secret.isProtected(), wasProtected);
  EXPECT_EQ(secret.stored(), before);
#ifndef _WIN32
  // Linux always enciphers, so the plain layout never rests in memory.
  EXPECT_TRUE(wasProtected);
  EXPECT_NE(before, layoutOf(std::string("a secret")));
#endif
}

TEST(SecureStringTest, SetReplacesAndEmptyValueEmpties) {
  QIM::SecureString secret{QIM::SelfCleanString("first, a longer value")};
  secret.set(QIM::SelfCleanString("second"));
  EXPECT_EQ(secret.get(), "second");
  secret.set(QIM::SelfCleanString());
  EXPECT_TRUE(secret.empty());
  EXPECT_TRUE(secret.get().empty());
}

TEST(SecureStringTest, DamagedCountsGiveEmpty) {
  const auto withCount = [](std::uint32_t count, std::size_t size) {
    Bytes bytes(size, 'p');
    std::memcpy(bytes.data(), &count, 4);
    return bytes;
  };
  const struct {
    const char* what;
    Bytes stored;
  } cases[] = {
      {"count only, four bytes", withCount(1, 4)},
      {"count zero", withCount(0, 8)},
      {"count past the end", withCount(5, 8)},
      {"count of 4 GB", withCount(0xFFFFFFFFu, 16)},
      {"fewer than four bytes", Bytes(3, 1)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Probe<char> secret;
    secret.replace(c.stored, false);
    EXPECT_TRUE(secret.get().empty());
  }
  Probe<char> exact;
  exact.replace(withCount(4, 8), false);
  EXPECT_EQ(exact.get(), "pppp");
}

TEST(SecureStringTest, EqualityComparesFlagAndStoredBytes) {
  const QIM::SelfCleanString value("same secret");
  Probe<char> first{value};
  const Probe<char> second{value};
  EXPECT_TRUE(first == second);  // two protected copies, one secret
  EXPECT_TRUE(QIM::SecureString(first) == second);
  EXPECT_FALSE(first == Probe<char>{QIM::SelfCleanString("same secreT")});
  EXPECT_TRUE(QIM::SecureString() == QIM::SecureString());

  Probe<char> plain{value};
  plain.unprotect();
  // Plain and enciphered copies differ, unless nothing could be enciphered.
  EXPECT_EQ(plain == second, !second.isProtected());
  first.unprotect();
  EXPECT_TRUE(plain == first);
}

TEST(EncryptStringTest, RoundTripsInTheSameProcess) {
  for (const std::string& value : kNarrowCases) {
    SCOPED_TRACE(::testing::PrintToString(value));
    const std::string bytes = QIM::encryptString(value);
    EXPECT_EQ(bytes.size(), layoutOf(value).size());
    EXPECT_EQ(bytes, QIM::encryptString(value));  // deterministic in the process
    const QIM::SelfCleanString back = QIM::decryptString(bytes);
    EXPECT_EQ(std::string(back.data(), back.size()), value);
  }
}

TEST(EncryptStringTest, OutputIsTheSecureBuffersBytes) {
  const std::string value = "pin 1234";
  Probe<char> secret{QIM::SelfCleanString(value)};
  EXPECT_EQ(QIM::encryptString(value), asString(secret.stored()));
#ifndef _WIN32
  EXPECT_NE(QIM::encryptString(value), asString(layoutOf(value)));
#endif
}

TEST(DecryptStringTest, RejectsLengthsThatAreNoWholeBlocks) {
  const std::string valid = QIM::encryptString("0123456789");  // 16 bytes
  ASSERT_EQ(valid.size(), 16u);
  for (std::size_t length : {1u, 4u, 7u, 12u, 15u}) {
    SCOPED_TRACE(length);
    EXPECT_TRUE(QIM::decryptString(valid.substr(0, length)).empty());
  }
  EXPECT_TRUE(QIM::decryptString("").empty());
  EXPECT_TRUE(QIM::decryptString(std::string(12, '\0')).empty());
}

// Records whether each block the allocator frees was already zero.
struct FreedBlocks {
  static inline std::vector<bool> wiped;
  static void observe(const void* block, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(block);
    bool zero = true;
    for (std::size_t i = 0; i < size; ++i) zero = zero && bytes[i] == 0;
    wiped.push_back(zero);
  }
};

class SelfCleanStringTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FreedBlocks::wiped.clear();
    previous_ = QIM::detail::setWipeObserver(&FreedBlocks::observe);
  }
  void TearDown() override { QIM::detail::setWipeObserver(previous_); }

 private:
  QIM::detail::WipeObserver previous_ = nullptr;
};

TEST_F(SelfCleanStringTest, EveryFreedHeapBlockIsWiped) {
  {
    QIM::SelfCleanString secret(40, 's');
    secret.append(200, 't');  // reallocates: the first block is freed
    QIM::SelfCleanString copy = secret;
    copy = QIM::SelfCleanString(500, 'u');  // replaces copy's block
    QIM::SelfCleanWString wide(100, L'w');
    wide.shrink_to_fit();
  }
  EXPECT_GE(FreedBlocks::wiped.size(), 4u);
  for (std::size_t i = 0; i < FreedBlocks::wiped.size(); ++i) {
    EXPECT_TRUE(FreedBlocks::wiped[i]) << "block " << i;
  }
}

TEST_F(SelfCleanStringTest, SecureBufferBlocksAreWipedToo) {
  {
    QIM::SecureString secret{QIM::SelfCleanString(64, 'k')};
    secret.set(QIM::SelfCleanString(300, 'k'));
  }
  EXPECT_GE(FreedBlocks::wiped.size(), 2u);
  for (bool wiped : FreedBlocks::wiped) EXPECT_TRUE(wiped);
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

TEST_F(SelfCleanStringTest, InlineStorageIsWipedOnDestruction) {
  EXPECT_TRUE(leavesNoTrace([](QIM::SelfCleanString& s) { s = "shortpw"; }, "shortpw"));
  // A short value left behind when the string moved to the heap.
  EXPECT_TRUE(leavesNoTrace(
      [](QIM::SelfCleanString& s) {
        s = "abcdefghijklm";
        s.append(100, '-');
      },
      "ijklm"));
  // Moved out: the source's inline storage keeps its old bytes until then.
  EXPECT_TRUE(leavesNoTrace(
      [](QIM::SelfCleanString& s) {
        s = "xyzsecret";
        QIM::SelfCleanString taken(std::move(s));
      },
      "secret"));
}

}  // namespace
