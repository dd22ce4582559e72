#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "TestSupport.h"
#include "qimmisc/EncryptionConfigurationFile.h"
#include "qimmisc/QIMException.h"
#include "qimmisc/StringUtils.h"
#include "settings/SettingsFiles.h"
#include "settings/SettingsKey.h"
#include "settings/Tea.h"

namespace QIM::test {
namespace {

std::string bigEndian(std::uint64_t block) {
  std::string bytes(8, '\0');
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(block >> (56 - 8 * i));
  return bytes;
}

unsigned char* bytesOf(std::string& s) { return reinterpret_cast<unsigned char*>(s.data()); }

TEST(TeaTest, MatchesPublishedVectorsAndRoundTrips) {
  // Published vectors of Wheeler and Needham's reference code (big-endian).
  const struct {
    std::uint32_t key[4];
    std::uint64_t plain, cipher;
  } vectors[] = {
      // clang-format off
      {{0, 0, 0, 0}, 0, 0x41ea3a0a94baa940},
      {{~0u, ~0u, ~0u, ~0u}, ~0ull, 0x319bbefb016abdb2},
      {{0x00112233, 0x44556677, 0x8899aabb, 0xccddeeff}, 0x0123456789abcdef, 0x126c6b92c0653a3e},
      {{0x00112233, 0x44556677, 0x8899aabb, 0xccddeeff}, 0x67452301efcdab89, 0xd667cc4e10bf6eb0},
      {{0xd94576cd, 0x1a5f99e4, 0x155dc7be, 0xc5d33df2}, 0xd51399607f7aa9d7, 0x7d1eb12827ef2121},
      {{0x07ef12bc, 0x9d06d7da, 0x20131116, 0xb665e335}, 0x10b233473624ccd3, 0xae694e579daeff54},
      // clang-format on
  };
  for (const auto& v : vectors) {
    std::string block = bigEndian(v.plain);
    detail::teaEncipher(bytesOf(block), 8, v.key);
    EXPECT_EQ(block, bigEndian(v.cipher)) << std::hex << v.plain;
  }
  // Any length: the blocks that hold `length` bytes change, no others, and come back.
  for (long length = 0; length <= 24; ++length) {
    const auto rounded = static_cast<std::size_t>((length + 7) / 8 * 8);
    const std::string plain(32, 'p');
    std::string data = plain;
    detail::teaEncipher(bytesOf(data), length, vectors[2].key);
    EXPECT_EQ(data.substr(rounded), plain.substr(rounded)) << length;
    EXPECT_TRUE(length == 0 || data.substr(rounded - 8, 8) != plain.substr(0, 8)) << length;
    detail::teaDecipher(bytesOf(data), length, vectors[2].key);
    EXPECT_EQ(data, plain) << length;
  }
}

class EncryptionConfigurationFileTest : public TracingTest {
 protected:
  void loadBytes(const std::string& bytes) {
    writeBytes(path_, bytes);
    file_.loadConfigurationFile(path_);
  }
  std::string text() { return toUtf8(file_.toText()); }

  ScratchFolder folder_;
  const std::wstring path_ = folder_.path("settings.dat");
  EncryptionConfigurationFile file_;
};

TEST_F(EncryptionConfigurationFileTest, PaddingByteCountsTheZeroBytes) {
  // The development key's 32 digits, 5145494D4D697363204465764B657921.
  const std::uint32_t developmentKey[4] = {0x5145494Du, 0x4D697363u, 0x20446576u, 0x4B657921u};
  const std::pair<std::string, char> cases[] = {{"[ABCDEFGHIJKLM]\n", 0},  // whole blocks
                                                {"[S]\nk=v\nkey=value\n", 6}};
  for (const auto& [plain, count] : cases) {
    writeBytes(folder_.path("plain.ini"), plain);
    file_.encryptIniFile(folder_.path("plain.ini"), path_);
    std::string expected = plain + std::string(static_cast<std::size_t>(count), '\0');
    const std::string bytes = readBytes(path_);
    ASSERT_EQ(bytes.size(), expected.size() + 1) << plain;
    EXPECT_EQ(bytes.back(), count);
    if (detail::settingsKeyIsDevelopment()) {
      detail::teaEncipher(bytesOf(expected), static_cast<long>(expected.size()), developmentKey);
      EXPECT_EQ(bytes, expected + count);
    }
    EncryptionConfigurationFile again;
    again.loadConfigurationFile(path_);
    EXPECT_EQ(toUtf8(again.toText()), plain);
    EXPECT_FALSE(again.lastLoadDamaged());
  }
}

TEST_F(EncryptionConfigurationFileTest, PaddingCountIsChecked) {
  const std::string x7(7, 'x'), x8(8, 'x');
  // Each file with whether it is damaged.
  const std::pair<std::string, bool> cases[] = {{"", false},         {std::string(1, '\0'), false},
                                                {"\x01", true},      {x7 + "\x08", true},
                                                {x8 + "\x80", true}, {x8 + "\xFF", true}};
  for (const auto& [bytes, damaged] : cases) {
    sink_.clear();
    file_.setString(L"Keep", L"k", L"v");
    loadBytes(bytes);
    EXPECT_EQ(file_.lastLoadDamaged(), damaged) << bytes.size();
    EXPECT_EQ(sink_.contains("invalid padding count"), damaged) << bytes.size();
    EXPECT_EQ(text(), bytes.size() == 1 && !damaged ? "" : "[Keep]\nk=v\n") << bytes.size();
  }
}

TEST_F(EncryptionConfigurationFileTest, DamagedOrMissingFilesNeverCrash) {
  for (int i = 0; i < 40; ++i) file_.setInt(L"S", L"k" + std::to_wstring(i), i);
  file_.write(path_);
  const std::string good = readBytes(path_);
  for (std::size_t cut = 0; cut <= good.size(); ++cut) loadBytes(good.substr(0, cut));
  for (std::size_t extra = 1; extra < 20; ++extra) loadBytes(good + std::string(extra, '\x03'));
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string bytes(random() % 100, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    loadBytes(bytes);
  }
  EXPECT_THROW(file_.loadConfigurationFile(folder_.path("absent.dat")), FileNotFoundException);
  EXPECT_THROW(file_.encryptIniFile(folder_.path("absent.ini"), path_), FileNotFoundException);
}

// The committed sample and its enciphered form under the development key:
// a file enciphered on one platform must read the same on the other.
TEST_F(EncryptionConfigurationFileTest, SamplesMatchOnEveryPlatform) {
  if (!detail::settingsKeyIsDevelopment()) {
    GTEST_SKIP() << "built with a private key; the samples are enciphered with the development key";
  }
  const std::wstring data = std::filesystem::path(QIMMISC_SETTINGS_TEST_DATA).wstring() + L"/";
  file_.encryptIniFile(data + L"sample.ini", path_);
  EXPECT_EQ(readBytes(path_), readBytes(data + L"sample.dat"));
  file_.loadConfigurationFile(data + L"sample.dat");
  EXPECT_FALSE(file_.lastLoadDamaged());
  EXPECT_EQ(file_.getString(L"General", L"Greeting", L""),
            L"Gr\u00fc\u00df Gott \u2014 \u3053\u3093\u306b\u3061\u306f \U0001F600");
  BufferConfigurationFile plain;
  plain.loadConfigurationFile(data + L"sample.ini");
  EXPECT_EQ(file_.toText(), plain.toText());
}

}  // namespace
}  // namespace QIM::test
