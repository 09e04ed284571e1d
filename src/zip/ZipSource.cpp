#include "zip/ZipSource.h"

#include "errortrap/modFailSafeLITE.h"
#include "platform/SysError.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace orvKestrel::zipsource {
namespace {

std::string Describe() {
  int number = 0;
  std::string description;
  DescribeCurrentException(number, description);
  return description;
}

zip_int64_t Fail(State& s, int code, int sys, std::string why) {
  s.file.reset();
  s.read.reset();
  s.failure = std::move(why);
  zip_error_set(&s.error, code, sys);
  return -1;
}

// Waits for the worker that deflates the entry; without one (or when it left the file to
// libzip) the source reads the file itself.
zip_int64_t TakePacked(State& s) {
  if (s.ahead == nullptr || s.ready) return 0;
  zipahead::Packed& p = s.ahead->Wait(s.slot);
  const auto state = p.state;
  if (state == zipahead::Packed::State::Done) {
    const auto size = static_cast<std::uint64_t>(p.data.size());
    s.ready = State::Ready{std::move(p.data), size, p.crc, p.read};
    return 0;
  }
  std::string why = std::move(p.failure);
  s.ahead->Release(s.slot);
  s.ahead = nullptr;
  if (state == zipahead::Packed::State::Changed) return Fail(s, ZIP_ER_READ, EAGAIN, why);
  return 0;
}

zip_int64_t Open(State& s) {
  if (TakePacked(s) < 0) return -1;
  if (s.ready) {
    s.ready->offset = 0;
    s.read.reset();
    s.failure.clear();
    return 0;
  }
  s.read.reset();
  s.failure.clear();
  try {
    s.file.emplace(s.fs.OpenToRead(s.path));
  } catch (...) {
    return Fail(s, ZIP_ER_OPEN, errno, Describe());
  }
  return 0;
}

zip_int64_t ReadPacked(State& s, void* data, zip_uint64_t len) {
  State::Ready& r = *s.ready;
  const std::size_t n =
      std::min(static_cast<std::size_t>(len), static_cast<std::size_t>(r.packedSize - r.offset));
  if (n == 0) {
    s.read = r.read;
    if (s.ahead != nullptr) s.ahead->Release(s.slot);
    s.ahead = nullptr;
    r.data = {};
    return 0;
  }
  std::memcpy(data, r.data.data() + r.offset, n);
  r.offset += n;
  return static_cast<zip_int64_t>(n);
}

zip_int64_t Read(State& s, void* data, zip_uint64_t len) {
  if (s.ready) return ReadPacked(s, data, len);
  if (!s.file) return Fail(s, ZIP_ER_INTERNAL, 0, "not open");
  try {
    const std::size_t n = s.file->Read(static_cast<char*>(data), static_cast<std::size_t>(len));
    if (n == 0) {
      const FileIdentity read = s.file->Finish();
      // libzip was told the length before it opened the file; stored entries rely on it.
      if (s.statSize && *s.statSize != read.size) {
        throw KestrelError(EAGAIN, "The file changed while it was read");
      }
      s.read = read;
    }
    return static_cast<zip_int64_t>(n);
  } catch (...) {
    return Fail(s, ZIP_ER_READ, EAGAIN, Describe());
  }
}

zip_int64_t Stat(State& s, void* data, zip_uint64_t len) {
  zip_stat_t* st = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, len, &s.error);
  if (st == nullptr) return -1;
  zip_stat_init(st);
  if (TakePacked(s) < 0) return -1;
  if (s.ready) {
    // Already compressed: libzip writes the data as it is, with this CRC and these sizes.
    s.statSize = s.ready->read.size;
    st->size = s.ready->read.size;
    st->comp_size = s.ready->packedSize;
    st->comp_method = ZIP_CM_DEFLATE;
    st->crc = s.ready->crc;
    st->valid |= ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_CRC;
    return sizeof(*st);
  }
  try {
    s.statSize = s.fs.Stat(s.path).Value().size;
  } catch (...) {
    return Fail(s, ZIP_ER_READ, ENOENT, Describe());
  }
  st->size = *s.statSize;
  st->valid |= ZIP_STAT_SIZE;
  return sizeof(*st);
}

// The general purpose bits a source may set (libzip keeps the constant to itself).
constexpr zip_uint16_t kFlagsMask = 0x0836;

// What libzip's own deflate layer tells of an entry it compressed: the version needed and the
// level's hint in the general purpose bits. Nothing for a file libzip reads itself.
zip_int64_t Attributes(State& s, void* data, zip_uint64_t len) {
  if (len < sizeof(zip_file_attributes_t)) {
    zip_error_set(&s.error, ZIP_ER_INVAL, 0);
    return -1;
  }
  auto* a = static_cast<zip_file_attributes_t*>(data);
  zip_file_attributes_init(a);
  if (!s.ready) return sizeof(*a);
  a->valid |= ZIP_FILE_ATTRIBUTES_VERSION_NEEDED | ZIP_FILE_ATTRIBUTES_GENERAL_PURPOSE_BIT_FLAGS;
  a->version_needed = 20;
  a->general_purpose_bit_mask = kFlagsMask;
  a->general_purpose_bit_flags = s.level < 3 ? (2 << 1) : s.level > 7 ? (1 << 1) : 0;
  return sizeof(*a);
}

zip_int64_t Callback(void* userdata, void* data, zip_uint64_t len, zip_source_cmd_t cmd) {
  State& s = *static_cast<State*>(userdata);
  switch (cmd) {
    case ZIP_SOURCE_OPEN: return Open(s);
    case ZIP_SOURCE_READ: return Read(s, data, len);
    case ZIP_SOURCE_CLOSE:
      s.file.reset();
      return 0;
    case ZIP_SOURCE_FREE:
      s.file.reset();
      s.ready.reset();
      return 0;
    case ZIP_SOURCE_GET_FILE_ATTRIBUTES: return Attributes(s, data, len);
    case ZIP_SOURCE_STAT: return Stat(s, data, len);
    case ZIP_SOURCE_ERROR: return zip_error_to_data(&s.error, data, len);
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                            ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                            ZIP_SOURCE_GET_FILE_ATTRIBUTES, -1);
    default:
      zip_error_set(&s.error, ZIP_ER_OPNOTSUPP, 0);
      return -1;
  }
}

}  // namespace

State::State(FileSystem& f, std::string p) : fs(f), path(std::move(p)) { zip_error_init(&error); }

State::~State() { zip_error_fini(&error); }

zip_source_t* Create(zip_t* za, State& state) { return zip_source_function(za, Callback, &state); }

}  // namespace orvKestrel::zipsource
