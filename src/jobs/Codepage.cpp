#include "jobs/Codepage.h"

#include "platform/SysError.h"

#include <iconv.h>

#include <cerrno>
#include <memory>
#include <type_traits>

namespace orvKestrel::codepage {
namespace {

struct IconvCloser {
  void operator()(void* cd) const { iconv_close(static_cast<iconv_t>(cd)); }
};
using Iconv = std::unique_ptr<std::remove_pointer_t<iconv_t>, IconvCloser>;

Iconv Open(const char* to, const char* from) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) ThrowSys(errno, "iconv_open", "");
  return Iconv(cd);
}

bool IsUndefinedIn1252(unsigned char b) {
  return b == 0x81 || b == 0x8D || b == 0x8F || b == 0x90 || b == 0x9D;
}

// Converts as far as iconv can; at a sequence it refuses, onRefused(in, left, out) must consume
// it (and may append to out) or return false to give up.
template <class OnRefused>
bool Convert(const Iconv& cd, std::string_view input, std::string& out, OnRefused onRefused) {
  out.clear();
  out.reserve(input.size() + input.size() / 4);
  char* in = const_cast<char*>(input.data());
  std::size_t inLeft = input.size();
  char buf[4096];
  while (inLeft > 0) {
    char* o = buf;
    std::size_t oLeft = sizeof buf;
    const std::size_t r = iconv(cd.get(), &in, &inLeft, &o, &oLeft);
    out.append(buf, static_cast<std::size_t>(o - buf));
    if (r != static_cast<std::size_t>(-1)) continue;
    if (errno == E2BIG) continue;
    if (!onRefused(in, inLeft, out)) return false;
  }
  return true;
}

}  // namespace

std::string Cp1252ToUtf8(std::string_view bytes) {
  const Iconv cd = Open("UTF-8", "WINDOWS-1252");
  std::string out;
  Convert(cd, bytes, out, [](char*& in, std::size_t& left, std::string& o) {
    const auto b = static_cast<unsigned char>(*in);
    // Only the undefined bytes are refused; they become U+0081 .. U+009D.
    o += IsUndefinedIn1252(b) ? std::string{static_cast<char>(0xC2), static_cast<char>(b)}
                              : std::string("\xEF\xBF\xBD");
    ++in;
    --left;
    return true;
  });
  return out;
}

std::optional<std::string> Utf8ToCp1252(std::string_view text) {
  const Iconv cd = Open("WINDOWS-1252", "UTF-8");
  std::string out;
  const bool ok = Convert(cd, text, out, [](char*& in, std::size_t& left, std::string& o) {
    // The C1 controls that stand for the undefined bytes go back to those bytes.
    if (left >= 2 && static_cast<unsigned char>(in[0]) == 0xC2 &&
        IsUndefinedIn1252(static_cast<unsigned char>(in[1]))) {
      o += in[1];
      in += 2;
      left -= 2;
      return true;
    }
    return false;
  });
  if (!ok) return std::nullopt;
  return out;
}

std::size_t CountChars(std::string_view text) {
  std::size_t n = 0;
  for (const char c : text) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  }
  return n;
}

std::string_view FirstChars(std::string_view text, std::size_t n) {
  std::size_t pos = 0;
  for (std::size_t count = 0; pos < text.size(); ++pos) {
    if ((static_cast<unsigned char>(text[pos]) & 0xC0) != 0x80) {
      if (count == n) break;
      ++count;
    }
  }
  return text.substr(0, pos);
}

}  // namespace orvKestrel::codepage
