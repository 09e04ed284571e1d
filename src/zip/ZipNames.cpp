#include "zip/ZipNames.h"

#include "platform/Paths.h"

#include <cstdint>
#include <deque>

namespace orvKestrel::zipnames {
namespace {

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Length of the UTF-8 sequence that starts with c (1 for a stray byte).
std::size_t SeqLen(unsigned char c) {
  if (c >= 0xF0 && c <= 0xF4) return 4;
  if (c >= 0xE0) return c <= 0xEF ? 3 : 1;
  if (c >= 0xC2) return 2;
  return 1;
}

std::size_t CharLen(std::string_view s, std::size_t i) {
  const std::size_t n = SeqLen(static_cast<unsigned char>(s[i]));
  return i + n <= s.size() ? n : 1;
}

// Wildcard match with one backtracking point per "*": linear in practice, never exponential.
bool Wild(std::string_view p, std::string_view s) {
  std::size_t pi = 0, si = 0;
  std::size_t starP = std::string_view::npos, starS = 0;
  while (si < s.size()) {
    if (pi < p.size() && p[pi] == '*') {
      starP = pi++;
      starS = si;
    } else if (pi < p.size() && p[pi] == '?') {
      ++pi;
      si += CharLen(s, si);
    } else if (pi < p.size() && Lower(p[pi]) == Lower(s[si])) {
      ++pi;
      ++si;
    } else if (starP != std::string_view::npos) {
      pi = starP + 1;
      starS += CharLen(s, starS);
      si = starS;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == '*') ++pi;
  return pi == p.size();
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

}  // namespace

std::string EntryName(std::string_view file, std::string_view base) {
  while (!base.empty() && base.back() == '/') base.remove_suffix(1);
  std::string_view rest = file;
  if (!base.empty() && file.size() > base.size() && file.substr(0, base.size()) == base &&
      file[base.size()] == '/') {
    rest = file.substr(base.size());
  }
  while (!rest.empty() && rest.front() == '/') rest.remove_prefix(1);
  return std::string(rest);
}

NameFilter::NameFilter(std::string_view filter) {
  std::string_view rest = filter;
  for (;;) {
    const auto pos = rest.find(';');
    const std::string_view one = Trim(rest.substr(0, pos));
    if (one == "*" || one == "*.*") all_ = true;
    if (!one.empty()) patterns_.emplace_back(one);
    if (pos == std::string_view::npos) break;
    rest = rest.substr(pos + 1);
  }
  if (patterns_.empty()) all_ = true;
}

bool NameFilter::Matches(std::string_view name) const {
  if (all_) return true;
  for (const auto& p : patterns_) {
    if (Wild(p, name)) return true;
  }
  return false;
}

SplitPath SplitEntryPath(std::string_view name) {
  SplitPath out;
  if (!name.empty() && name.front() == '/') {
    out.refused = "absolute path";
    return out;
  }
  for (const std::string_view part : paths::PathParts(name)) {
    if (part == "..") {
      out.parts.clear();
      out.refused = "path leaves the destination (\"..\")";
      return out;
    }
    out.parts.emplace_back(part);
  }
  return out;
}

bool LinkResolvesInside(const std::vector<std::string>& folder, std::string_view target,
                        const LinkLookup& linkAt) {
  constexpr int kMaxHops = 40;  // the system's own limit on links in one resolution
  std::vector<std::string> at = folder;
  std::deque<std::string> todo;
  const auto prepend = [&todo](std::string_view path) {
    const auto parts = paths::PathParts(path);
    todo.insert(todo.begin(), parts.begin(), parts.end());
  };
  // A NUL ends the target the system stores: what follows it must not take part in the check.
  if (target.empty() || target.front() == '/' || target.find('\0') != std::string_view::npos) {
    return false;
  }
  prepend(target);
  int hops = 0;
  while (!todo.empty()) {
    std::string part = std::move(todo.front());
    todo.pop_front();
    if (part == "..") {
      if (at.empty()) return false;
      at.pop_back();
      continue;
    }
    at.push_back(std::move(part));
    const std::optional<std::string> link = linkAt(at);
    if (!link) continue;
    if (++hops > kMaxHops || link->empty() || link->front() == '/' ||
        link->find('\0') != std::string::npos) {
      return false;
    }
    at.pop_back();
    prepend(*link);
  }
  return true;
}

}  // namespace orvKestrel::zipnames
