#include "jobs/Profile.h"

#include <orvKestrel/utf8.h>

#include "jobs/Codepage.h"
#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <optional>
#include <vector>

namespace orvKestrel {
namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view s) {
  const auto first = s.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  const auto last = s.find_last_not_of(" \t\r");
  return s.substr(first, last - first + 1);
}

std::string_view Unquote(std::string_view v) {
  if (v.size() >= 2 && (v.front() == '"' || v.front() == '\'') && v.back() == v.front()) {
    return v.substr(1, v.size() - 2);
  }
  return v;
}

struct Line {
  enum class Kind { Other, Section, Key };
  Kind kind = Kind::Other;
  std::string_view name;   // trimmed, as written
  std::string_view value;  // trimmed, quotes still on
};

Line Classify(std::string_view text) {
  const std::string_view t = Trim(text);
  if (t.empty() || t.front() == ';') return {};
  if (t.front() == '[') {
    const auto close = t.rfind(']');
    if (close == std::string_view::npos) return {};
    return {Line::Kind::Section, Trim(t.substr(1, close - 1)), {}};
  }
  const auto eq = t.find('=');
  if (eq == std::string_view::npos) return {Line::Kind::Key, t, {}};
  return {Line::Kind::Key, Trim(t.substr(0, eq)), Trim(t.substr(eq + 1))};
}

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && paths::LowerAscii(a) == paths::LowerAscii(b);
}

// A file's text as UTF-8, without a byte-order mark.
std::string Decode(std::string_view bytes) {
  if (IsValidUtf8(bytes)) {
    if (bytes.starts_with(kBom)) bytes.remove_prefix(kBom.size());
    return std::string(bytes);
  }
  return codepage::Cp1252ToUtf8(bytes);
}

}  // namespace

Profile::Profile(std::string_view bytes) {
  const std::string text = Decode(bytes);
  std::string_view rest(text);
  Keys* current = nullptr;  // null outside a section, and in a repeated section
  while (!rest.empty()) {
    const auto nl = rest.find('\n');
    const std::string_view raw = rest.substr(0, nl);
    rest = nl == std::string_view::npos ? std::string_view() : rest.substr(nl + 1);
    const Line line = Classify(raw);
    if (line.kind == Line::Kind::Section) {
      auto [it, isNew] = sections_.try_emplace(paths::LowerAscii(line.name));
      current = isNew ? &it->second : nullptr;
    } else if (line.kind == Line::Kind::Key && current != nullptr) {
      current->try_emplace(paths::LowerAscii(line.name), Unquote(line.value));
    }
  }
}

Profile Profile::Load(FileSystem& fs, const std::string& path) {
  if (path.empty()) return {};
  const std::optional<std::string> bytes = fs.ReadSmallFile(path, kMaxBytes);
  return bytes ? Profile(*bytes) : Profile();
}

std::string Profile::Get(std::string_view section, std::string_view key, std::string_view def,
                         int nSize) const {
  if (nSize <= 0) return {};
  std::string_view value = def;
  if (const auto s = sections_.find(paths::LowerAscii(section)); s != sections_.end()) {
    if (const auto k = s->second.find(paths::LowerAscii(key)); k != s->second.end()) {
      value = k->second;
    }
  }
  return std::string(codepage::FirstChars(value, static_cast<std::size_t>(nSize - 1)));
}

// ---------------------------------------------------------------------------------------------
// Writing: the file is edited line by line so that every line not touched keeps its bytes.

namespace {

struct RawLine {
  std::string bytes;  // as in the file, without the line end
  std::string eol;    // "\n", "\r\n" or "" (last line without a line end)
  std::string text;   // as UTF-8
  bool changed = false;
};

std::vector<RawLine> SplitLines(std::string_view bytes, bool utf8) {
  std::vector<RawLine> lines;
  while (!bytes.empty()) {
    const auto nl = bytes.find('\n');
    std::string_view raw = bytes.substr(0, nl);
    std::string eol = nl == std::string_view::npos ? "" : "\n";
    bytes = nl == std::string_view::npos ? std::string_view() : bytes.substr(nl + 1);
    if (!eol.empty() && raw.ends_with('\r')) {
      raw.remove_suffix(1);
      eol = "\r\n";
    }
    RawLine line{std::string(raw), std::move(eol), {}, false};
    line.text = utf8 ? line.bytes : codepage::Cp1252ToUtf8(line.bytes);
    lines.push_back(std::move(line));
  }
  return lines;
}

// Where the new value goes: the line of the key, or the place to insert it.
struct Target {
  std::optional<std::size_t> keyLine;
  std::optional<std::size_t> insertAfter;  // the section's last key line, or its header
};

Target FindTarget(const std::vector<RawLine>& lines, std::string_view section,
                  std::string_view key) {
  Target t;
  bool inSection = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Line line = Classify(lines[i].text);
    if (line.kind == Line::Kind::Section) {
      if (inSection) break;  // only the first matching section counts
      inSection = SameName(line.name, section);
      if (inSection) t.insertAfter = i;
    } else if (inSection && line.kind == Line::Kind::Key) {
      if (SameName(line.name, key)) {
        t.keyLine = i;
        break;
      }
      t.insertAfter = i;
    }
  }
  return t;
}

void CheckWritable(std::string_view section, std::string_view key, std::string_view value) {
  const auto bad = [](std::string_view s) { return s.find_first_of("\r\n") != s.npos; };
  if (bad(section) || bad(key) || bad(value) || key.find('=') != key.npos ||
      section.find(']') != section.npos || Trim(key).empty()) {
    throw KestrelError(kErrInvalidCall, "Invalid procedure call: a profile line cannot hold "
                                        "section \"" + std::string(section) + "\", key \"" +
                                        std::string(key) + "\" with this value");
  }
}

// True when the Windows-1252 bytes of lines form valid UTF-8 holding a non-ASCII byte: such a
// file would be read as UTF-8 (pure ASCII reads the same either way).
bool WouldReadAsUtf8(const std::vector<RawLine>& lines) {
  std::string all;
  bool nonAscii = false;
  for (const RawLine& l : lines) {
    for (const char c : l.bytes) nonAscii = nonAscii || static_cast<unsigned char>(c) >= 0x80;
    all += l.bytes;
    all += l.eol;
  }
  return nonAscii && IsValidUtf8(all);
}

}  // namespace

std::string SetProfileValue(std::string_view bytes, std::string_view section, std::string_view key,
                            std::string_view value) {
  CheckWritable(section, key, value);
  bool utf8 = IsValidUtf8(bytes);
  std::string bom;
  if (utf8 && bytes.starts_with(kBom)) {
    bom = kBom;
    bytes.remove_prefix(kBom.size());
  }
  std::vector<RawLine> lines = SplitLines(bytes, utf8);
  std::string eol = "\n";
  for (const RawLine& l : lines) {
    if (!l.eol.empty()) {
      eol = l.eol;
      break;
    }
  }
  auto fresh = [&](std::string text) { return RawLine{{}, eol, std::move(text), true}; };
  const Target t = FindTarget(lines, section, key);
  if (t.keyLine) {
    RawLine& line = lines[*t.keyLine];
    line.text = std::string(Classify(line.text).name) + "=" + std::string(value);
    line.changed = true;
  } else {
    if (!lines.empty() && lines.back().eol.empty()) lines.back().eol = eol;
    const std::string keyLine = std::string(Trim(key)) + "=" + std::string(value);
    if (t.insertAfter) {
      lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(*t.insertAfter + 1), fresh(keyLine));
    } else {
      if (!lines.empty() && !Trim(lines.back().text).empty()) lines.push_back(fresh(""));
      lines.push_back(fresh("[" + std::string(section) + "]"));
      lines.push_back(fresh(keyLine));
    }
  }
  if (!utf8) {
    for (RawLine& l : lines) {
      if (!l.changed) continue;
      std::optional<std::string> enc = codepage::Utf8ToCp1252(l.text);
      if (!enc) {
        utf8 = true;  // the new text does not fit the old code page: keep every character
        break;
      }
      l.bytes = std::move(*enc);
    }
  }
  if (!utf8 && WouldReadAsUtf8(lines)) {
    // The edit removed the only bytes that made the file Windows-1252: kept as they are, the
    // remaining non-ASCII bytes would read back as UTF-8 and change other keys' values.
    utf8 = true;
  }
  std::string out = bom;
  out.reserve(bytes.size() + value.size() + key.size() + section.size() + 16);
  for (const RawLine& l : lines) {
    out += utf8 ? l.text : l.bytes;
    out += l.eol;
  }
  return out;
}

}  // namespace orvKestrel
