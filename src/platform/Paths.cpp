#include "platform/Paths.h"

#include <unistd.h>

#include <vector>

namespace orvKestrel::paths {

std::string BuildPath(std::string_view folder, std::string_view name) {
  if (folder.empty()) return std::string(name);
  if (name.empty()) return std::string(folder);
  std::string out(folder);
  const bool endsSep = out.back() == '/';
  const bool startsSep = name.front() == '/';
  if (endsSep && startsSep) name.remove_prefix(1);
  else if (!endsSep && !startsSep) out += '/';
  out += name;
  return out;
}

std::string GetFileName(std::string_view path) {
  const auto pos = path.rfind('/');
  return std::string(pos == std::string_view::npos ? path : path.substr(pos + 1));
}

std::string GetExtensionName(std::string_view path) {
  const std::string name = GetFileName(path);
  const auto dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string GetBaseName(std::string_view path) {
  const std::string name = GetFileName(path);
  const auto dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string GetParentFolderName(std::string_view path) {
  const auto pos = path.rfind('/');
  if (pos == std::string_view::npos) return {};
  if (pos == 0) return "/";
  return std::string(path.substr(0, pos));
}

namespace {

// Already absolute and clean: no empty, "." or ".." part and no trailing separator. Most paths a
// run builds are, and are asked about once per file.
bool IsCleanAbsolute(std::string_view path) {
  if (path.size() < 2 || path.front() != '/' || path.back() == '/') return false;
  for (std::size_t at = 0; at != std::string_view::npos;) {
    const std::size_t next = path.find('/', at + 1);
    const std::size_t end = next == std::string_view::npos ? path.size() : next;
    const std::string_view part = path.substr(at + 1, end - at - 1);
    if (part.empty() || part == "." || part == "..") return false;
    at = next;
  }
  return true;
}

}  // namespace

std::string GetAbsolutePathName(std::string_view path) {
  if (IsCleanAbsolute(path)) return std::string(path);
  std::string full;
  if (path.empty() || path.front() != '/') {
    std::vector<char> buf(4096);
    while (getcwd(buf.data(), buf.size()) == nullptr && buf.size() < (1u << 20)) {
      buf.resize(buf.size() * 2);
    }
    full = std::string(buf.data());
    full += '/';
  }
  full += path;
  std::vector<std::string_view> parts;
  for (const std::string_view part : PathParts(full)) {
    if (part != "..") {
      parts.push_back(part);
    } else if (!parts.empty()) {
      parts.pop_back();
    }
  }
  std::string out;
  for (const auto part : parts) {
    out += '/';
    out += part;
  }
  return out.empty() ? "/" : out;
}

std::vector<std::string_view> PathParts(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    const auto pos = path.find('/');
    const std::string_view part = path.substr(0, pos);
    path = pos == std::string_view::npos ? std::string_view() : path.substr(pos + 1);
    if (!part.empty() && part != ".") parts.push_back(part);
  }
  return parts;
}

std::string ReplaceAll(std::string_view text, std::string_view what, std::string_view with) {
  if (what.empty()) return std::string(text);
  std::string out;
  std::size_t start = 0;
  for (auto pos = text.find(what); pos != std::string_view::npos; pos = text.find(what, start)) {
    out.append(text.substr(start, pos - start));
    out.append(with);
    start = pos + what.size();
  }
  out.append(text.substr(start));
  return out;
}

std::string LowerAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

}  // namespace orvKestrel::paths
