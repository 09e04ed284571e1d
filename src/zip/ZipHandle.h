// libzip handles shared by the writing and the reading half of the zip facade.
#pragma once

#include <zip.h>

#include <memory>
#include <string>

namespace orvKestrel::ziphandle {

// An archive handle that is dropped without writing unless it was closed explicitly.
struct Discard {
  void operator()(zip_t* za) const { zip_discard(za); }
};
using ZipPtr = std::unique_ptr<zip_t, Discard>;

struct FileClose {
  void operator()(zip_file_t* zf) const { zip_fclose(zf); }
};
using ZipFilePtr = std::unique_ptr<zip_file_t, FileClose>;

// The text of a libzip error code (with the system error where it carries one).
inline std::string ErrorText(const zip_error_t* err) {
  zip_error_t copy;
  zip_error_init_with_code(&copy, zip_error_code_zip(err));
  const int sys = zip_error_code_system(err);
  if (zip_error_system_type(err) == ZIP_ET_SYS && sys != 0) {
    copy.sys_err = sys;
  }
  std::string text = zip_error_strerror(&copy);
  zip_error_fini(&copy);
  return text;
}

inline std::string ErrorText(int code) {
  zip_error_t err;
  zip_error_init_with_code(&err, code);
  std::string text = zip_error_strerror(&err);
  zip_error_fini(&err);
  return text;
}

// Folders are stored as entries whose name ends in "/" (or "\" from some other systems).
inline bool IsFolderName(const char* name) {
  const std::string_view n(name);
  return !n.empty() && (n.back() == '/' || n.back() == '\\');
}

}  // namespace orvKestrel::ziphandle
