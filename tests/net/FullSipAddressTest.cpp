#include "qimmisc/FullSipAddress.h"

#include <gtest/gtest.h>

#include <sstream>

#include "qimmisc/StringUtils.h"

namespace QIM {
namespace {

TEST(FullSipAddressTest, ConstructorsTakeTheSchemeOrTheGivenProtocol) {
  const struct {
    FullSipAddress value;
    std::wstring address;
    SipAddressProtocol protocol;
    std::wstring full;
  } rows[] = {
      {FullSipAddress(), L"", Sip, L"sip:"},
      {FullSipAddress(std::string("SIPS:Bob@PBX")), L"SIPS:Bob@PBX", Sips, L"sips:Bob@PBX"},
      {FullSipAddress(L"TEL:+123"), L"TEL:+123", Tel, L"tel:+123"},
      {FullSipAddress(L"alice@pbx"), L"alice@pbx", Sip, L"sip:alice@pbx"},
      {FullSipAddress(L"sip:alice@pbx", Tel), L"sip:alice@pbx", Tel, L"tel:alice@pbx"},
      {FullSipAddress(std::string("b\xc3\xa9@pbx"), Sips), L"b\u00e9@pbx", Sips, L"sips:b\u00e9@pbx"},
      // Invalid UTF-8 stores nothing.
      {FullSipAddress(std::string("sips:b\xff@pbx")), L"", Sips, L"sips:"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value.address, row.address);
    EXPECT_EQ(row.value.protocol, row.protocol) << toUtf8(row.address);
    EXPECT_EQ(row.value.getFullSipAddress(), row.full);
    EXPECT_EQ(row.value.isValid(), !row.address.empty());
  }
}

TEST(FullSipAddressTest, Equality) {
  const struct {
    FullSipAddress a, b;
    bool equal;
  } rows[] = {
      {FullSipAddress(L"sip:alice@PBX"), FullSipAddress(L"alice@pbx"), true},
      {FullSipAddress(L"sip:Alice@pbx"), FullSipAddress(L"sip:alice@pbx"), false},
      {FullSipAddress(L"alice@pbx", Sip), FullSipAddress(L"alice@pbx", Sips), false},
      {FullSipAddress(L"tel:+1@pbx", Tel), FullSipAddress(L"sips:+1@pbx", Tel), true},
      {FullSipAddress(L"alice"), FullSipAddress(L"alice"), true},
      {FullSipAddress(), FullSipAddress(), false},  // an empty address never parses
      {FullSipAddress(L"a@b@c"), FullSipAddress(L"a@b@c"), false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.a == row.b, row.equal) << row.a << " vs " << row.b;
    EXPECT_EQ(row.a != row.b, !row.equal);
  }
}

TEST(FullSipAddressTest, AssigningAnEqualAddressKeepsTheTargetsSpelling) {
  FullSipAddress target(L"sip:alice@PBX.example");
  target = FullSipAddress(L"alice@pbx.example");
  EXPECT_EQ(target.address, L"sip:alice@PBX.example");

  target = FullSipAddress(L"bob@pbx.example", Sips);
  EXPECT_EQ(target.address, L"bob@pbx.example");
  EXPECT_EQ(target.protocol, Sips);
}

TEST(FullSipAddressTest, StreamsWriteTheFullAddress) {
  const FullSipAddress value(L"SIP:b\u00e9@pbx", Sips);
  std::ostringstream narrow;
  narrow << value;
  EXPECT_EQ(narrow.str(), "sips:b\xc3\xa9@pbx");
  std::wostringstream wide;
  wide << value;
  EXPECT_EQ(wide.str(), L"sips:b\u00e9@pbx");
}

}  // namespace
}  // namespace QIM
