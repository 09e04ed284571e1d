// PCRE2 (8-bit, UTF) with the options that give the script dialect the jobs were written in:
// \uHHHH and \xHH escapes, an unset back reference matches the empty string, "$" only at the
// very end. Names on disk need not be valid UTF-8, so subjects are matched as they are.
#define PCRE2_CODE_UNIT_WIDTH 8
#include "selection/RegExp.h"

#include "platform/SysError.h"

#include <pcre2.h>

namespace orvKestrel {
namespace {

// The error number the script engine gives a pattern it cannot compile.
constexpr int kErrRegExpSyntax = 5017;

constexpr std::uint32_t kCompileOptions = PCRE2_UTF | PCRE2_CASELESS | PCRE2_ALT_BSUX |
                                          PCRE2_MATCH_UNSET_BACKREF | PCRE2_DOLLAR_ENDONLY |
                                          PCRE2_MATCH_INVALID_UTF;

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
  std::unique_ptr<pcre2_code, CodeFree> code;
  std::unique_ptr<pcre2_match_data, DataFree> data;
};

RegExpCache::RegExpCache() = default;
RegExpCache::~RegExpCache() = default;

bool RegExpCache::Test(const std::string& pattern, const std::string& subject) {
  auto it = cache_.find(pattern);
  if (it == cache_.end()) {
    int code = 0;
    PCRE2_SIZE offset = 0;
    auto compiled = std::make_unique<Compiled>();
    compiled->code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()),
                                       pattern.size(), kCompileOptions, &code, &offset, nullptr));
    if (!compiled->code) {
      throw KestrelError(kErrRegExpSyntax, "Syntax error in regular expression \"" + pattern +
                                               "\" at offset " + std::to_string(offset) + ": " +
                                               ErrorText(code));
    }
    pcre2_jit_compile(compiled->code.get(), PCRE2_JIT_COMPLETE);  // falls back to the interpreter
    compiled->data.reset(pcre2_match_data_create_from_pattern(compiled->code.get(), nullptr));
    if (!compiled->data) throw std::bad_alloc();
    it = cache_.emplace(pattern, std::move(compiled)).first;
  }
  const Compiled& c = *it->second;
  const int rc = pcre2_match(c.code.get(), reinterpret_cast<PCRE2_SPTR>(subject.data()),
                             subject.size(), 0, 0, c.data.get(), nullptr);
  if (rc >= 0) return true;
  if (rc == PCRE2_ERROR_NOMATCH) return false;
  throw KestrelError(kErrRegExpSyntax, "Regular expression \"" + pattern + "\": " + ErrorText(rc));
}

}  // namespace orvKestrel
