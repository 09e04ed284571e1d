// PCRE2 (8-bit, UTF) with the options that give the script dialect the jobs were written in:
// \uHHHH and \xHH escapes, an unset back reference matches the empty string, "$" only at the
// very end. Names on disk need not be valid UTF-8: such a name is matched byte by byte by a
// second compilation of the pattern, made the first time one turns up.
#define PCRE2_CODE_UNIT_WIDTH 8
#include "selection/RegExp.h"

#include "platform/SysError.h"

#include <pcre2.h>

#include <optional>

namespace orvKestrel {
namespace {

// The error number the script engine gives a pattern it cannot compile.
constexpr int kErrRegExpSyntax = 5017;

// "." also matches a line break: names on this platform may hold one, and "*" (".*") must
// still take every name.
constexpr std::uint32_t kByteOptions = PCRE2_CASELESS | PCRE2_ALT_BSUX | PCRE2_MATCH_UNSET_BACKREF |
                                       PCRE2_DOLLAR_ENDONLY | PCRE2_DOTALL;
constexpr std::uint32_t kUtfOptions = kByteOptions | PCRE2_UTF;

std::string ErrorText(int code) {
  PCRE2_UCHAR buf[256];
  const int n = pcre2_get_error_message(code, buf, sizeof buf);
  return n < 0 ? "regular expression error " + std::to_string(code)
               : std::string(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
}

}  // namespace

struct RegExpCache::Compiled {
  struct CodeFree {
    void operator()(pcre2_code* c) const { pcre2_code_free(c); }
  };
  struct DataFree {
    void operator()(pcre2_match_data* d) const { pcre2_match_data_free(d); }
  };
  struct Program {
    std::unique_ptr<pcre2_code, CodeFree> code;
    std::unique_ptr<pcre2_match_data, DataFree> data;
  };
  Program utf;
  std::optional<Program> bytes;  // for names that are not valid UTF-8
};

namespace {

// nullopt when the pattern does not compile; code and offset say why.
std::optional<RegExpCache::Compiled::Program> Compile(const std::string& pattern,
                                                      std::uint32_t options, int& code,
                                                      PCRE2_SIZE& offset) {
  RegExpCache::Compiled::Program prog;
  prog.code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                options, &code, &offset, nullptr));
  if (!prog.code) return std::nullopt;
  pcre2_jit_compile(prog.code.get(), PCRE2_JIT_COMPLETE);  // falls back to the interpreter
  prog.data.reset(pcre2_match_data_create_from_pattern(prog.code.get(), nullptr));
  if (!prog.data) throw std::bad_alloc();
  return prog;
}

int Match(const RegExpCache::Compiled::Program& prog, const std::string& subject) {
  return pcre2_match(prog.code.get(), reinterpret_cast<PCRE2_SPTR>(subject.data()),
                     subject.size(), 0, 0, prog.data.get(), nullptr);
}

}  // namespace

RegExpCache::RegExpCache() = default;
RegExpCache::~RegExpCache() = default;

void RegExpCache::Prepare(const std::string& pattern) { Find(pattern); }

RegExpCache::Compiled& RegExpCache::Find(const std::string& pattern) {
  auto it = cache_.find(pattern);
  if (it == cache_.end()) {
    int code = 0;
    PCRE2_SIZE offset = 0;
    auto prog = Compile(pattern, kUtfOptions, code, offset);
    if (!prog) {
      throw KestrelError(kErrRegExpSyntax, "Syntax error in regular expression \"" + pattern +
                                               "\" at offset " + std::to_string(offset) + ": " +
                                               ErrorText(code));
    }
    auto compiled = std::make_unique<Compiled>();
    compiled->utf = std::move(*prog);
    it = cache_.emplace(pattern, std::move(compiled)).first;
  }
  return *it->second;
}

bool RegExpCache::Test(const std::string& pattern, const std::string& subject) {
  Compiled& c = Find(pattern);
  int rc = Match(c.utf, subject);
  if (rc <= PCRE2_ERROR_UTF8_ERR1 && rc >= PCRE2_ERROR_UTF8_ERR21) {
    if (!c.bytes) {
      int code = 0;
      PCRE2_SIZE offset = 0;
      c.bytes = Compile(pattern, kByteOptions, code, offset);
    }
    // A pattern that needs characters beyond one byte cannot match such a name.
    rc = c.bytes ? Match(*c.bytes, subject) : PCRE2_ERROR_NOMATCH;
  }
  if (rc >= 0) return true;
  if (rc == PCRE2_ERROR_NOMATCH) return false;
  throw KestrelError(kErrRegExpSyntax, "Regular expression \"" + pattern + "\": " + ErrorText(rc));
}

}  // namespace orvKestrel
