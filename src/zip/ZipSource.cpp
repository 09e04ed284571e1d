#include "zip/ZipSource.h"

#include "errortrap/modFailSafeLITE.h"
#include "platform/SysError.h"

#include <cerrno>

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

zip_int64_t Open(State& s) {
  s.read.reset();
  s.failure.clear();
  try {
    s.file.emplace(s.fs.OpenToRead(s.path));
  } catch (...) {
    return Fail(s, ZIP_ER_OPEN, errno, Describe());
  }
  return 0;
}

zip_int64_t Read(State& s, void* data, zip_uint64_t len) {
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
  try {
    s.statSize = s.fs.Stat(s.path).Value().size;
  } catch (...) {
    return Fail(s, ZIP_ER_READ, ENOENT, Describe());
  }
  st->size = *s.statSize;
  st->valid |= ZIP_STAT_SIZE;
  return sizeof(*st);
}

zip_int64_t Callback(void* userdata, void* data, zip_uint64_t len, zip_source_cmd_t cmd) {
  State& s = *static_cast<State*>(userdata);
  switch (cmd) {
    case ZIP_SOURCE_OPEN: return Open(s);
    case ZIP_SOURCE_READ: return Read(s, data, len);
    case ZIP_SOURCE_CLOSE:
    case ZIP_SOURCE_FREE:
      s.file.reset();
      return 0;
    case ZIP_SOURCE_STAT: return Stat(s, data, len);
    case ZIP_SOURCE_ERROR: return zip_error_to_data(&s.error, data, len);
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                            ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                            -1);
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
