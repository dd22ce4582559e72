#include "qimmisc/FullSipAddress.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "qimmisc/StringUtils.h"

namespace QIM {
namespace {

TEST(FullSipAddressTest, ConstructorsAccessorsAndStreams) {
  // The value, the address it stores, its protocol and the address it shows and streams.
  const std::tuple<FullSipAddress, std::wstring, SipAddressProtocol, std::wstring> rows[] = {
      {FullSipAddress(), L"", Sip, L"sip:"},
      {FullSipAddress(std::string("SIPS:Bob@PBX")), L"SIPS:Bob@PBX", Sips, L"sips:Bob@PBX"},
      {FullSipAddress(L"TEL:+123"), L"TEL:+123", Tel, L"tel:+123"},
      {FullSipAddress(L"alice@pbx"), L"alice@pbx", Sip, L"sip:alice@pbx"},
      {FullSipAddress(L"sip:alice@pbx", Tel), L"sip:alice@pbx", Tel, L"tel:alice@pbx"},
      {FullSipAddress(std::string("SIP:\xc3\xa9"), Sips), L"SIP:\u00e9", Sips, L"sips:\u00e9"},
      // Invalid UTF-8 stores nothing.
      {FullSipAddress(std::string("sips:b\xff@pbx")), L"", Sips, L"sips:"},
  };
  for (const auto& [value, address, protocol, full] : rows) {
    EXPECT_EQ(value.address, address);
    EXPECT_EQ(value.protocol, protocol) << toUtf8(address);
    EXPECT_EQ(value.getFullSipAddress(), full);
    EXPECT_EQ(value.isValid(), !address.empty());
    std::ostringstream narrow;
    std::wostringstream wide;
    narrow << value;
    wide << value;
    EXPECT_EQ(narrow.str(), toUtf8(full));
    EXPECT_EQ(wide.str(), full);
  }
}

TEST(FullSipAddressTest, EqualityAndAssignment) {
  const std::tuple<FullSipAddress, FullSipAddress, bool> rows[] = {
      {FullSipAddress(L"sip:alice@PBX"), FullSipAddress(L"alice@pbx"), true},
      {FullSipAddress(L"sip:Alice@pbx"), FullSipAddress(L"sip:alice@pbx"), false},
      {FullSipAddress(L"alice@pbx", Sip), FullSipAddress(L"alice@pbx", Sips), false},
      {FullSipAddress(L"tel:+1@pbx", Tel), FullSipAddress(L"sips:+1@pbx", Tel), true},
      {FullSipAddress(), FullSipAddress(), false},  // an empty address never parses
  };
  for (const auto& [a, b, equal] : rows) {
    EXPECT_EQ(a == b, equal) << a << " vs " << b;
    EXPECT_EQ(a != b, !equal);
    // Assigning an equal address keeps the target's own spelling.
    FullSipAddress target(a);
    target = b;
    EXPECT_EQ(target.address, equal ? a.address : b.address);
    EXPECT_EQ(target.protocol, b.protocol);
  }
}

}  // namespace
}  // namespace QIM
