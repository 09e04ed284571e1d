// Helpers of the zip tests: archives written and read apart from the code under test.
#pragma once

#include "support/TestSupport.h"

#include <zip.h>

namespace orvKestrel::testing {

using Strings = std::vector<std::string>;

// "name|size|method|seconds since the epoch of the local time stored" per entry, in archive
// order, read by python's zipfile (folders with their trailing "/"); a last line tells when
// python failed. The script is written to a file beside the data.
inline std::vector<std::string> PyEntries(const TempDir& dir, const std::string& archive) {
  WriteFile(dir / "script.py", "import time, zipfile\n"
                               "for i in zipfile.ZipFile(" + Quote(archive) + ").infolist():\n"
                               "  print('%s|%d|%d|%d' % (i.filename, i.file_size, i.compress_type,"
                               " time.mktime(i.date_time + (0, 0, -1))))\n");
  const bool system = std::filesystem::exists("/usr/bin/python3");
  const ToolResult r = RunTool((system ? "/usr/bin/python3 -I " : "python3 ") + Quote(dir / "script.py"));
  std::vector<std::string> out = SplitLines(r.output);
  if (r.status != 0) out.push_back("python failed: " + r.output);
  return out;
}

// The entries of an archive with their contents ("<damaged>" where one does not read), read
// by libzip apart from the code under test; nullopt when there is no archive.
inline std::optional<std::map<std::string, std::string>> ArchiveEntries(const std::string& path) {
  int err = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err);
  if (za == nullptr) return std::nullopt;
  std::map<std::string, std::string> out;
  for (zip_int64_t i = 0; i < zip_get_num_entries(za, 0); ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t st;
    zip_file_t* zf = zip_stat_index(za, index, 0, &st) == 0 ? zip_fopen_index(za, index, 0) : nullptr;
    std::string data(zf != nullptr ? st.size : 0, '\0');
    if (zf == nullptr || zip_fread(zf, data.data(), st.size) != static_cast<zip_int64_t>(st.size)) data = "<damaged>";
    if (zf != nullptr) zip_fclose(zf);
    out[zip_get_name(za, index, 0)] = data;
  }
  zip_discard(za);
  return out;
}

// Writes an archive with libzip directly (entry times 1700000000).
inline void MakeArchive(const std::string& path, const std::map<std::string, std::string>& entries) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  int err = 0;
  zip_t* za = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
  if (za == nullptr) throw std::runtime_error("cannot make " + path);
  for (const auto& [name, data] : entries) {
    zip_source_t* source = zip_source_buffer(za, data.data(), data.size(), 0);
    const zip_int64_t i = zip_file_add(za, name.c_str(), source, ZIP_FL_ENC_UTF_8);
    zip_file_set_mtime(za, static_cast<zip_uint64_t>(i), 1700000000, 0);
  }
  if (zip_close(za) != 0) throw std::runtime_error("cannot write " + path);
}

}  // namespace orvKestrel::testing
