// File attributes as the jobs know them. Read-only is the owner's missing write permission;
// hidden, system and archive live in the extended attribute "user.DOSATTRIB" in the text form
// that file servers use ("0x" and hexadecimal digits), so that both sides see the same bits; a
// name beginning with "." is hidden as well. Compressed is the file system's own flag.
#include "platform/FileSystem.h"
#include "platform/SysError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>

namespace orvKestrel {
namespace {

constexpr const char* kDosAttrib = "user.DOSATTRIB";
// The bits kept in the extended attribute by SetAttributes; others found there stay as they are.
constexpr std::uint32_t kXattrBits = kAttrHidden | kAttrSystem | kAttrArchive;

struct XattrValue {
  bool supported = true;
  std::optional<std::uint32_t> bits;  // nullopt: no value stored
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "0x20", with or without a trailing NUL or a binary tail after the text.
std::optional<std::uint32_t> ParseDosAttrib(const char* data, std::size_t n) {
  if (n < 3 || data[0] != '0' || (data[1] != 'x' && data[1] != 'X')) return std::nullopt;
  std::uint32_t value = 0;
  std::size_t i = 2;
  for (; i < n && i < 10; ++i) {
    const int d = HexDigit(data[i]);
    if (d < 0) break;
    value = value << 4 | static_cast<std::uint32_t>(d);
  }
  if (i == 2) return std::nullopt;
  return value;
}

XattrValue ReadDosAttrib(const std::string& path) {
  std::array<char, 256> buf{};
  const ssize_t n = ::getxattr(path.c_str(), kDosAttrib, buf.data(), buf.size());
  if (n < 0) {
    if (errno == ENOTSUP) return {false, std::nullopt};
    return {true, std::nullopt};  // no value, or a value we cannot read: no bits
  }
  return {true, ParseDosAttrib(buf.data(), static_cast<std::size_t>(n))};
}

bool NameIsHidden(const std::string& path) {
  std::size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  const std::size_t slash = path.rfind('/', end - 1);
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  return start < end && path[start] == '.';
}

struct statx StatxOf(const std::string& path) {
  struct statx sx {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE | STATX_MODE, &sx) != 0) {
    ThrowSys(errno, "statx", path);
  }
  return sx;
}

// Read-only clears every write bit; clearing it gives the owner write permission back.
mode_t WantedPerms(mode_t perms, bool readOnly) {
  if (readOnly) return perms & ~mode_t{0222};
  return (perms & S_IWUSR) ? perms : perms | S_IWUSR;
}

void Chmod(const std::string& path, mode_t perms) {
  if (::chmod(path.c_str(), perms) != 0) ThrowSys(errno, "chmod", path);
}

void WriteDosAttrib(const std::string& path, std::uint32_t bits) {
  char text[16];
  const int n = std::snprintf(text, sizeof text, "0x%x", bits);
  if (::setxattr(path.c_str(), kDosAttrib, text, static_cast<std::size_t>(n), 0) != 0) {
    ThrowSys(errno, "setxattr", path);
  }
}

}  // namespace

std::uint32_t FileSystem::GetAttributes(const std::string& path) {
  const struct statx sx = StatxOf(path);
  std::uint32_t attrs = 0;
  if (S_ISDIR(sx.stx_mode)) attrs |= kAttrDirectory;
  if ((sx.stx_mode & S_IWUSR) == 0) attrs |= kAttrReadOnly;
  if (NameIsHidden(path)) attrs |= kAttrHidden;
  if ((sx.stx_attributes_mask & STATX_ATTR_COMPRESSED) &&
      (sx.stx_attributes & STATX_ATTR_COMPRESSED)) {
    attrs |= kAttrCompressed;  // FS_COMPR_FL, reported by statx without opening the file
  }
  if (const auto x = ReadDosAttrib(path).bits) {
    attrs |= *x & (kAttrHidden | kAttrSystem | kAttrArchive | kAttrCompressed);
  }
  return attrs;
}

void FileSystem::SetAttributes(const std::string& path, std::uint32_t attrs) {
  const Changing changing(cache_);
  Gate(FaultOp::SetAttributes, "setxattr", path);
  const struct statx sx = StatxOf(path);
  const mode_t perms = sx.stx_mode & 07777;
  mode_t now = perms;
  const XattrValue current = ReadDosAttrib(path);
  const std::uint32_t old = current.bits.value_or(0);
  std::uint32_t wanted = (old & ~kXattrBits) | (attrs & kXattrBits);
  // A dot name is hidden already; the bit is recorded only when the value held it before.
  if (NameIsHidden(path) && (old & kAttrHidden) == 0) wanted &= ~kAttrHidden;
  if (wanted != old) {
    if (!current.supported) ThrowSys(ENOTSUP, "getxattr", path);
    // User extended attributes need write permission, which a read-only file lacks for a while.
    if ((perms & S_IWUSR) == 0) Chmod(path, now = perms | S_IWUSR);
    try {
      WriteDosAttrib(path, wanted);
    } catch (const KestrelError&) {
      if (now != perms) ::chmod(path.c_str(), perms);
      throw;
    }
  }
  const mode_t final = WantedPerms(perms, (attrs & kAttrReadOnly) != 0);
  if (final != now) Chmod(path, final);
}

}  // namespace orvKestrel
