// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "zip/modZIP32vb.h"
namespace orvKestrel {
ZipLibrary::ZipLibrary(FileSystem& fs) : fs_(fs) {}
ZipLibrary::~ZipLibrary() = default;
void ZipLibrary::InitZip() {}
void ZipLibrary::SetCompressionRate(std::int32_t rate) { rate_ = rate; }
void ZipLibrary::SaveFolderLocation(const std::string& base) { base_ = base; }
std::int32_t ZipLibrary::ZipFile(const std::string&, const std::string&, const std::string&, std::int32_t, std::int32_t) { return 0; }
std::int32_t ZipLibrary::ZipAddFile(const std::string&, const std::string&, std::int32_t, std::int32_t) { return 0; }
std::int32_t ZipLibrary::CheckZipFile(const std::string&, const std::string&) { return 3; }
std::int32_t ZipLibrary::ZipFileCount(const std::string&) { return 0; }
std::int32_t ZipLibrary::UnZipEx(const std::string&, const std::string&, const std::string&, std::int32_t, const std::string&, std::int32_t, std::int32_t) { return 0; }
void ZipLibrary::CancelZip() { cancel_.store(true); }
void ZipLibrary::Flush() {}
}  // namespace orvKestrel
