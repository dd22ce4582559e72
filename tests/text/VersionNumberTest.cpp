#include "qimmisc/VersionNumber.h"

#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "TestSupport.h"

namespace {

using QIM::VersionNumber;
using Components = std::vector<std::int32_t>;

using VersionNumberTest = QIM::test::TracingTest;

TEST_F(VersionNumberTest, ParsesEachPieceAndPrintsItBack) {
  const struct { std::wstring text; Components components; std::wstring printed; } cases[] = {
      {L"1.2.0", {1, 2, 0}, L"1.2.0"}, {L"007.010", {7, 10}, L"7.10"},
      {L"-3.+4. 5", {-3, 4, 5}, L"-3.4.5"},
      // Empty pieces read as 0; empty text has no pieces.
      {L"1..2", {1, 0, 2}, L"1.0.2"}, {L".5.", {0, 5, 0}, L"0.5.0"}, {L"", {}, L""},
      // What the number read leaves: the leading digits, else 0.
      {L"12a.b3.0x10", {12, 0, 0}, L"12.0.0"}, {L"1 .2", {1, 2}, L"1.2"},
      {std::wstring(L"3\0" L"9.1", 5), {3, 1}, L"3.1"},
      // Beyond 32 bits the value saturates alike on every platform.
      {L"2147483647.2147483648", {2147483647, 2147483647}, L"2147483647.2147483647"},
      {L"-2147483649.99999999999999999999", {-2147483647 - 1, 2147483647}, L"-2147483648.2147483647"},
      // Non-ASCII digits and letters are no number.
      {L"\u00e9.\u0661\u0662.\uff13", {0, 0, 0}, L"0.0.0"},
      {std::wstring(L"2.") + wchar_t(0xD800) + L".4", {2, 0, 4}, L"2.0.4"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    VersionNumber version(c.text);
    EXPECT_EQ(version.components(), c.components);
    EXPECT_EQ(version.toString(), c.printed);
    EXPECT_EQ(VersionNumber(version.toString()), version);
  }
  VersionNumber version;
  EXPECT_EQ(version.toString(), L"0");
  version.set(L"1.2.3.4");
  version.set(L"9");
  EXPECT_EQ(version.components(), Components{9});
  EXPECT_TRUE(sink_.contains("numTxt=\xc3\xa9.\xd9\xa1"));  // the text, in UTF-8
}

TEST_F(VersionNumberTest, OrdersComponentByComponentWithoutPadding) {
  // Each pair is also checked the other way round.
  const struct { const wchar_t *a, *b; int order; } cases[] = {
      {L"10.2", L"9.12", 1}, {L"1.2", L"1.2.0", -1}, {L"1.2", L"1.2", 0}, {L"2", L"1.99.99", 1},
      {L"0", L"", 1},        {L"1.-2", L"1.0", -1},  {L"1..", L"1.0.0", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(c.a) + L" vs " + c.b));
    for (const auto& [a, b, o] : {std::tuple(VersionNumber(c.a), VersionNumber(c.b), c.order),
                                  std::tuple(VersionNumber(c.b), VersionNumber(c.a), -c.order)}) {
      EXPECT_EQ((std::array{a == b, a != b, a < b, a <= b, a > b, a >= b}),
                (std::array{o == 0, o != 0, o < 0, o <= 0, o > 0, o >= 0}));
    }
  }
}

}  // namespace
