#include "jobs/NumberText.h"

#include "platform/SysError.h"

#include <charconv>
#include <limits>
#include <string>

namespace orvKestrel {
namespace {

struct Parts {
  bool negative = false;
  std::string_view whole;     // digits before the separator
  std::string_view fraction;  // digits after it
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

[[noreturn]] void Mismatch() { throw KestrelError(kErrTypeMismatch, "Type mismatch"); }
[[noreturn]] void Overflow() { throw KestrelError(kErrOverflow, "Overflow"); }

Parts Split(std::string_view t) {
  const auto first = t.find_first_not_of(" \t");
  if (first == std::string_view::npos) Mismatch();
  t = t.substr(first, t.find_last_not_of(" \t") - first + 1);
  Parts p;
  if (t.front() == '+' || t.front() == '-') {
    p.negative = t.front() == '-';
    t.remove_prefix(1);
  }
  std::size_t i = 0;
  while (i < t.size() && IsDigit(t[i])) ++i;
  p.whole = t.substr(0, i);
  if (i < t.size() && (t[i] == '.' || t[i] == ',')) {
    const std::size_t start = ++i;
    while (i < t.size() && IsDigit(t[i])) ++i;
    p.fraction = t.substr(start, i - start);
  }
  if (i != t.size() || (p.whole.empty() && p.fraction.empty())) Mismatch();
  return p;
}

// The value rounded to an integer, halves to even; overflow beyond limit (in magnitude).
std::int64_t RoundedMagnitude(const Parts& p, std::int64_t limit) {
  std::int64_t v = 0;
  for (const char c : p.whole) {
    v = v * 10 + (c - '0');
    if (v > limit) Overflow();
  }
  if (!p.fraction.empty()) {
    const char d = p.fraction.front();
    const bool restNonZero = p.fraction.substr(1).find_first_not_of('0') != std::string_view::npos;
    if (d > '5' || (d == '5' && (restNonZero || v % 2 == 1))) ++v;
  }
  if (v > limit) Overflow();
  return v;
}

template <class Int>
Int ToInt(std::string_view text) {
  const Parts p = Split(text);
  // The negative side holds one more: -32768 is a 16-bit value, 32768 is not.
  const std::int64_t limit = static_cast<std::int64_t>(std::numeric_limits<Int>::max()) +
                             (p.negative ? 1 : 0);
  const std::int64_t v = RoundedMagnitude(p, limit);
  return static_cast<Int>(p.negative ? -v : v);
}

}  // namespace

std::int16_t ToInt16(std::string_view text) { return ToInt<std::int16_t>(text); }
std::int32_t ToInt32(std::string_view text) { return ToInt<std::int32_t>(text); }

double ToDouble(std::string_view text) {
  const Parts p = Split(text);
  std::string plain(p.whole.empty() ? "0" : p.whole);
  if (!p.fraction.empty()) plain.append(".").append(p.fraction);
  double v = 0;
  const auto [end, ec] = std::from_chars(plain.data(), plain.data() + plain.size(), v);
  if (ec == std::errc::result_out_of_range) Overflow();
  if (ec != std::errc() || end != plain.data() + plain.size()) Mismatch();
  return p.negative ? -v : v;
}

}  // namespace orvKestrel
