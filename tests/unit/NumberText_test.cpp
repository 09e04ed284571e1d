#include "jobs/NumberText.h"

#include "platform/SysError.h"

#include <gtest/gtest.h>

namespace orvKestrel {
namespace {

int ErrorOf(std::int64_t (*convert)(std::string_view), std::string_view text) {
  try {
    convert(text);
  } catch (const KestrelError& e) {
    return e.Number();
  }
  return 0;
}

std::int64_t As16(std::string_view t) { return ToInt16(t); }
std::int64_t As32(std::string_view t) { return ToInt32(t); }

TEST(NumberText, RoundsHalvesToEven) {
  const std::pair<const char*, int> cases[] = {
      {"7.5", 8},   {"6.5", 6},   {"0.5", 0},  {"1.5", 2},     {"-7.5", -8}, {"-6.5", -6},
      {"2.51", 3},  {"2.49", 2},  {"2.50000", 2}, {"2.500001", 3}, {"4,0", 4}, {" 4 ", 4},
      {"\t-3\t", -3}, {"+3", 3},  {".5", 0},   {"5.", 5},      {"007", 7},   {"-0", 0},
  };
  for (const auto& [text, value] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ToInt16(text), value);
    EXPECT_EQ(ToInt32(text), value);
  }
}

TEST(NumberText, RangesOfTheConversion) {
  EXPECT_EQ(ToInt16("32767"), 32767);
  EXPECT_EQ(ToInt16("-32768"), -32768);
  EXPECT_EQ(ToInt16("-32768.5"), -32768);
  EXPECT_EQ(ToInt32("2147483647"), 2147483647);
  EXPECT_EQ(ToInt32("-2147483648"), -2147483647 - 1);
  const std::pair<const char*, int> overflow16[] = {
      {"32768", kErrOverflow}, {"32767.5", kErrOverflow}, {"-32769", kErrOverflow},
      {"99999999999999999999999", kErrOverflow}};
  for (const auto& [text, err] : overflow16) EXPECT_EQ(ErrorOf(As16, text), err) << text;
  EXPECT_EQ(ErrorOf(As32, "32768"), 0);
  EXPECT_EQ(ErrorOf(As32, "2147483648"), kErrOverflow);
  EXPECT_EQ(ErrorOf(As32, "-2147483649"), kErrOverflow);
}

TEST(NumberText, AnythingButANumberIsATypeMismatch) {
  for (const char* text : {"", "  ", "abc", "1a", "a1", "1.2.3", "1 2", "-", "+", ".", "1e3",
                           "--1", "0x10", "1,5,0", "\xC3\xA4"}) {
    EXPECT_EQ(ErrorOf(As16, text), kErrTypeMismatch) << '"' << text << '"';
    EXPECT_EQ(ErrorOf(As32, text), kErrTypeMismatch) << '"' << text << '"';
    EXPECT_THROW(ToDouble(text), KestrelError) << '"' << text << '"';
  }
}

TEST(NumberText, Doubles) {
  EXPECT_DOUBLE_EQ(ToDouble("1,5"), 1.5);
  EXPECT_DOUBLE_EQ(ToDouble(" 2.25 "), 2.25);
  EXPECT_DOUBLE_EQ(ToDouble("-0.125"), -0.125);
  EXPECT_DOUBLE_EQ(ToDouble("1048576"), 1048576.0);
}

}  // namespace
}  // namespace orvKestrel
