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

using Key = std::uint32_t[4];

// The development key's 32 digits, 5145494D4D697363204465764B657921, as
// big-endian words.
const Key kDevelopmentKey = {0x5145494Du, 0x4D697363u, 0x20446576u, 0x4B657921u};

std::string bigEndian(std::uint64_t block) {
  std::string bytes(8, '\0');
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(block >> (56 - 8 * i));
  return bytes;
}

unsigned char* bytesOf(std::string& s) { return reinterpret_cast<unsigned char*>(s.data()); }

struct TeaVector {
  std::uint32_t key[4];
  std::uint64_t plain;
  std::uint64_t cipher;
};

// Published vectors of Wheeler and Needham's reference code (big-endian).
const TeaVector kTeaVectors[] = {
    {{0, 0, 0, 0}, 0, 0x41ea3a0a94baa940ull},
    {{~0u, ~0u, ~0u, ~0u}, ~0ull, 0x319bbefb016abdb2ull},
    {{0x00112233u, 0x44556677u, 0x8899aabbu, 0xccddeeffu},
     0x0123456789abcdefull,
     0x126c6b92c0653a3eull},
    {{0x00112233u, 0x44556677u, 0x8899aabbu, 0xccddeeffu},
     0x67452301efcdab89ull,
     0xd667cc4e10bf6eb0ull},
    {{0xd94576cdu, 0x1a5f99e4u, 0x155dc7beu, 0xc5d33df2u},
     0xd51399607f7aa9d7ull,
     0x7d1eb12827ef2121ull},
    {{0x07ef12bcu, 0x9d06d7dau, 0x20131116u, 0xb665e335u},
     0x10b233473624ccd3ull,
     0xae694e579daeff54ull},
};

TEST(TeaTest, MatchesPublishedVectors) {
  for (const TeaVector& v : kTeaVectors) {
    std::string block = bigEndian(v.plain);
    detail::teaEncipher(bytesOf(block), 8, v.key);
    EXPECT_EQ(block, bigEndian(v.cipher)) << std::hex << v.plain;
    detail::teaDecipher(bytesOf(block), 8, v.key);
    EXPECT_EQ(block, bigEndian(v.plain));
  }
}

TEST(TeaTest, RoundTripsWholeBlocksForAnyKey) {
  std::mt19937 random(42);
  for (int round = 0; round < 50; ++round) {
    const Key key = {static_cast<std::uint32_t>(random()), static_cast<std::uint32_t>(random()),
                     static_cast<std::uint32_t>(random()), static_cast<std::uint32_t>(random())};
    const long length = static_cast<long>(random() % 70);
    const long rounded = (length + 7) / 8 * 8;
    std::string data(static_cast<std::size_t>(rounded) + 8, '\0');
    for (char& c : data) c = static_cast<char>(random());
    const std::string plain = data;
    detail::teaEncipher(bytesOf(data), length, key);
    // Only the blocks that hold `length` bytes change.
    EXPECT_EQ(data.substr(static_cast<std::size_t>(rounded)),
              plain.substr(static_cast<std::size_t>(rounded)));
    if (length > 0) {
      EXPECT_NE(data.substr(0, 8), plain.substr(0, 8));
    }
    detail::teaDecipher(bytesOf(data), length, key);
    EXPECT_EQ(data, plain);
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

TEST_F(EncryptionConfigurationFileTest, WholeBlockTextGetsNoPadding) {
  file_.clearSection(L"ABCDEFGHIJKLM");  // "[ABCDEFGHIJKLM]\n": 16 bytes
  file_.write(path_);
  const std::string bytes = readBytes(path_);
  ASSERT_EQ(bytes.size(), 17u);
  EXPECT_EQ(bytes[16], '\0');
  if (detail::settingsKeyIsDevelopment()) {
    std::string expected = "[ABCDEFGHIJKLM]\n";
    detail::teaEncipher(bytesOf(expected), 16, kDevelopmentKey);
    EXPECT_EQ(bytes.substr(0, 16), expected);
  }
  EncryptionConfigurationFile again;
  again.loadConfigurationFile(path_);
  EXPECT_EQ(toUtf8(again.toText()), "[ABCDEFGHIJKLM]\n");
}

TEST_F(EncryptionConfigurationFileTest, PaddingByteCountsTheZeroBytes) {
  file_.setString(L"S", L"k", L"v");        // "[S]\nk=v\n": 8 bytes
  file_.setString(L"S", L"key", L"value");  // and 10 more
  file_.write(path_);
  const std::string bytes = readBytes(path_);
  ASSERT_EQ(bytes.size(), 18u + 6 + 1);
  EXPECT_EQ(bytes.back(), '\x06');
  file_.setString(L"S", L"k", L"changed");
  file_.loadConfigurationFile(path_);
  EXPECT_EQ(text(), "[S]\nk=v\nkey=value\n");
  EXPECT_FALSE(file_.lastLoadDamaged());
}

struct DamageCase {
  const char* name;
  std::string bytes;
  bool damaged;
  std::string written;  // what the object holds afterwards
};

void PrintTo(const DamageCase& c, std::ostream* os) { *os << c.name; }

const std::string kKept = "[Keep]\nk=v\n";
const DamageCase kDamageCases[] = {
    {"empty_file_keeps_sections", "", false, kKept},
    {"single_zero_is_empty", std::string(1, '\0'), false, ""},
    {"single_one", "\x01", true, kKept},
    {"count_beyond_ciphertext", std::string(7, 'x') + "\x08", true, kKept},
    {"negative_count", std::string(8, 'x') + "\x80", true, kKept},
    {"count_255", std::string(8, 'x') + "\xFF", true, kKept},
};

class DamageTest : public EncryptionConfigurationFileTest,
                   public ::testing::WithParamInterface<DamageCase> {};

TEST_P(DamageTest, PaddingCountIsChecked) {
  file_.setString(L"Keep", L"k", L"v");
  loadBytes(GetParam().bytes);
  EXPECT_EQ(file_.lastLoadDamaged(), GetParam().damaged);
  EXPECT_EQ(sink_.contains("invalid padding count"), GetParam().damaged);
  EXPECT_EQ(text(), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(Files, DamageTest, ::testing::ValuesIn(kDamageCases),
                         [](const auto& param) { return std::string(param.param.name); });

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
  file_.encryptIniFile(sampleFile("sample.ini"), path_);
  EXPECT_EQ(readBytes(path_), readBytes(sampleFile("sample.dat")));

  EncryptionConfigurationFile sample;
  sample.loadConfigurationFile(sampleFile("sample.dat"));
  EXPECT_FALSE(sample.lastLoadDamaged());
  EXPECT_EQ(sample.getString(L"general", L"language", L""), L"fran\u00e7ais");
  EXPECT_EQ(sample.getString(L"General", L"Greeting", L""),
            L"Gr\u00fc\u00df Gott \u2014 \u3053\u3093\u306b\u3061\u306f \U0001F600");
  EXPECT_EQ(sample.getInt(L"Network", L"Port", 0), 5060);
  EXPECT_TRUE(sample.getBool(L"Network", L"UseTLS", false));
  EXPECT_EQ(sample.getString(L"\u03a9mega", L"Name", L""),
            L"\u0395\u03bb\u03bb\u03b7\u03bd\u03b9\u03ba\u03ac");
  BufferConfigurationFile plain;
  plain.loadConfigurationFile(sampleFile("sample.ini"));
  EXPECT_EQ(sample.toText(), plain.toText());
}

}  // namespace
}  // namespace QIM::test
