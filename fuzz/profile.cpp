// The profile reader and writer on arbitrary file bytes. Besides not crashing:
//  - a value is cut to 255 characters, a prefix of the whole value;
//  - setting one key gives that key the new value when read back, and every other key of the
//    file keeps the value it had (a job file rewritten by a run must not change its other keys).
#include "FuzzSupport.h"

#include <orvKestrel/utf8.h>

#include "jobs/Codepage.h"
#include "jobs/Profile.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using namespace orvKestrel;

namespace {

struct Probe {
  std::string section, key;
};

std::string_view Trim(std::string_view s) {
  const auto first = s.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

// The section and key names of a file, read independently of the code under test.
std::vector<Probe> Probes(std::string_view bytes) {
  std::string text = IsValidUtf8(bytes) ? std::string(bytes) : codepage::Cp1252ToUtf8(bytes);
  if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
  std::vector<Probe> out = {{"Job", "Status"}, {"Job", "Counter"}, {"Info", "ProgVersion"}};
  std::string section;
  std::string_view rest(text);
  while (!rest.empty()) {
    const auto nl = rest.find('\n');
    const std::string_view line = Trim(rest.substr(0, nl));
    rest = nl == std::string_view::npos ? std::string_view() : rest.substr(nl + 1);
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[') {
      const auto close = line.rfind(']');
      if (close != std::string_view::npos) section = Trim(line.substr(1, close - 1));
      continue;
    }
    out.push_back({section, std::string(Trim(line.substr(0, line.find('='))))});
    if (out.size() > 64) break;
  }
  return out;
}

std::uint64_t Hash(std::string_view s) {
  std::uint64_t h = 1469598103934665603ull;
  for (const unsigned char c : s) h = (h ^ c) * 1099511628211ull;
  return h;
}

std::string_view Unquote(std::string_view v) {
  if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
    return v.substr(1, v.size() - 2);
  }
  return v;
}

bool SameName(const Probe& a, const Probe& b) {
  return paths::LowerAscii(a.section) == paths::LowerAscii(b.section) &&
         paths::LowerAscii(a.key) == paths::LowerAscii(b.key);
}

constexpr std::array<const char*, 12> kValues = {
    "1", "0", "", "22.11.2026 10:00:00", " padded ", "\"quoted\"", "\xC3\xA4", "\xE2\x82\xAC",
    "\xE2\x86\x92", "a=b", ";x", "[x]"};
constexpr const char* kMissing = "\x01missing";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const Profile before(bytes);
  const std::vector<Probe> probes = Probes(bytes);
  for (const Probe& p : probes) {
    const std::string whole = before.Get(p.section, p.key, kMissing, 1 << 20);
    const std::string cut = before.Get(p.section, p.key, kMissing);
    if (codepage::CountChars(cut) > 255 || !whole.starts_with(cut)) {
      fuzz::Fail("the 255-character cut of [" + p.section + "] " + p.key);
    }
  }

  const std::uint64_t h = Hash(bytes);
  const Probe& target = probes[h % probes.size()];
  const std::string value = kValues[(h >> 32) % kValues.size()];
  std::string after;
  try {
    after = SetProfileValue(bytes, target.section, target.key, value);
  } catch (const KestrelError&) {
    return 0;  // a name that no profile line can hold is refused, as it must be
  }
  const Profile reread(after);
  if (reread.Get(target.section, target.key, kMissing, 1 << 20) != Unquote(Trim(value))) {
    fuzz::Fail("the written key [" + target.section + "] " + target.key + " does not read back");
  }
  for (const Probe& p : probes) {
    if (SameName(p, target)) continue;
    if (before.Get(p.section, p.key, kMissing, 1 << 20) != reread.Get(p.section, p.key, kMissing, 1 << 20)) {
      fuzz::Fail("writing [" + target.section + "] " + target.key + " changed [" + p.section +
                 "] " + p.key);
    }
  }
  return 0;
}
