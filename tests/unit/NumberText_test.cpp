#include "jobs/NumberText.h"

#include "platform/SysError.h"

#include <gtest/gtest.h>

#include <functional>

namespace orvKestrel {
namespace {

// The value, or the error number as a negative value beyond the range.
std::int64_t Read(const std::function<std::int64_t()>& convert) {
  try {
    return convert();
  } catch (const KestrelError& e) {
    return -1'000'000'000'000 - e.Number();
  }
}
constexpr std::int64_t kOverflow = -1'000'000'000'000 - kErrOverflow;
constexpr std::int64_t kMismatch = -1'000'000'000'000 - kErrTypeMismatch;

// Halves round to even; blanks, "," and "+" are read; each width has its overflow; anything but
// a number is a type mismatch.
TEST(NumberText, SixteenAndThirtyTwoBits) {
  const std::tuple<const char*, std::int64_t, std::int64_t> cases[] = {
      {"7.5", 8, 8}, {"6.5", 6, 6}, {"0.5", 0, 0}, {"-7.5", -8, -8}, {"2.51", 3, 3}, {"2.49", 2, 2},
      {"2.50000", 2, 2}, {"2.500001", 3, 3}, {"4,0", 4, 4}, {" 4 ", 4, 4}, {"\t-3\t", -3, -3},
      {"+3", 3, 3}, {".5", 0, 0}, {"5.", 5, 5}, {"007", 7, 7}, {"-0", 0, 0},
      {"32767", 32767, 32767}, {"-32768.5", -32768, -32768}, {"32767.5", kOverflow, 32768},
      {"-32769", kOverflow, -32769}, {"2147483647", kOverflow, 2147483647},
      {"-2147483648", kOverflow, -2147483648LL}, {"2147483648", kOverflow, kOverflow},
      {"99999999999999999999999", kOverflow, kOverflow},
  };
  for (const auto& [text, v16, v32] : cases) {
    EXPECT_EQ(Read([&] { return ToInt16(text); }), v16) << text;
    EXPECT_EQ(Read([&] { return ToInt32(text); }), v32) << text;
  }
  for (const char* text : {"", "  ", "abc", "1a", "a1", "1.2.3", "1 2", "-", "+", ".", "1e3", "--1",
                           "0x10", "1,5,0", "\xC3\xA4"}) {
    EXPECT_EQ(Read([&] { return ToInt16(text); }), kMismatch) << '"' << text << '"';
    EXPECT_EQ(Read([&] { return ToInt32(text); }), kMismatch) << '"' << text << '"';
    EXPECT_THROW(ToDouble(text), KestrelError) << '"' << text << '"';
  }
  EXPECT_DOUBLE_EQ(ToDouble("1,5"), 1.5);
  EXPECT_DOUBLE_EQ(ToDouble(" -0.125 "), -0.125);
  EXPECT_DOUBLE_EQ(ToDouble("1048576"), 1048576.0);
}

}  // namespace
}  // namespace orvKestrel
