// The zip facade: the archive operations the engine uses, under their names, on libzip.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace orvKestrel {

class FileSystem;

class ZipLibrary {
 public:
  explicit ZipLibrary(FileSystem& fs);
  ~ZipLibrary();
  ZipLibrary(const ZipLibrary&) = delete;
  ZipLibrary& operator=(const ZipLibrary&) = delete;

  void InitZip();
  void SetCompressionRate(std::int32_t rate);
  void SaveFolderLocation(const std::string& base);
  std::int32_t ZipFile(const std::string& archive, const std::string& file,
                       const std::string& password, std::int32_t mode, std::int32_t flags);
  std::int32_t ZipAddFile(const std::string& archive, const std::string& file, std::int32_t mode,
                          std::int32_t flags);
  // 0 readable, 1 damaged or without files, 2 missing, 3 not a zip archive.
  std::int32_t CheckZipFile(const std::string& archive, const std::string& password);
  std::int32_t ZipFileCount(const std::string& archive);
  std::int32_t UnZipEx(const std::string& archive, const std::string& destination,
                       const std::string& filter, std::int32_t keepFolders,
                       const std::string& password, std::int32_t overwriteMode,
                       std::int32_t reserved);
  // Asks the operation in progress to stop. Safe from another thread or a signal handler.
  void CancelZip();
  // Commits an archive kept open across ZipFile/ZipAddFile calls; a no-op when none is open.
  void Flush();
  // Entries of the last UnZipEx that were refused because they would land outside the
  // destination.
  const std::vector<std::string>& RefusedEntries() const { return refused_; }

 private:
  struct State;
  FileSystem& fs_;
  std::atomic<bool> cancel_{false};
  std::vector<std::string> refused_;
  std::int32_t rate_ = 3;
  std::string base_;
  std::string password_;
};

}  // namespace orvKestrel
