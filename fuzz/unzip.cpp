// Extraction of arbitrary archive bytes. The archive lies next to the destination in a folder
// two levels below a private scratch folder; after each input the levels above the destination
// may hold nothing else (but the error log), and the root folder may not have gained a name.
// Besides not crashing or hanging:
//  - CheckZipFile answers one of its documented values;
//  - UnZipEx twice (keep, then replace) never writes outside the destination.
#include "FuzzSupport.h"

#include "platform/FileSystem.h"
#include "zip/modZIP32vb.h"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

using namespace orvKestrel;

namespace {

struct State {
  fuzz::Scratch scratch;
  std::string work = scratch / "a/b";
  std::set<std::string> rootNames = fuzz::Names("/");
  FileSystem fs;
  ZipLibrary zip{fs};
  State() {
    std::filesystem::create_directories(work);
    zip.InitZip();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static State s;
  const std::string archive = s.work + "/in.zip";
  const std::string dest = s.work + "/dest";
  fuzz::Put(archive, std::string_view(reinterpret_cast<const char*>(data), size));
  std::filesystem::create_directories(dest);

  const std::int32_t check = s.zip.CheckZipFile(archive, "");
  if (check < 0 || check > 4) fuzz::Fail("CheckZipFile answered " + std::to_string(check));
  const std::int32_t count = s.zip.ZipFileCount(archive);
  if (count < 0) fuzz::Fail("ZipFileCount answered " + std::to_string(count));
  s.zip.StartUnzipRun({});  // each input is a run of its own: what the last one wrote is forgotten
  const std::string password = (size & 1) ? "secret" : "";
  const std::int32_t first = s.zip.UnZipEx(archive, dest, "*.*", 1, password, 0, 0);
  const std::int32_t second = s.zip.UnZipEx(archive, dest, (size & 2) ? "*" : "*.t?t;a*", (size & 4) ? 1 : 0,
                                            password, (size & 8) ? 3 : 4, 0);
  if (first < 0 || second < 0) fuzz::Fail("UnZipEx answered a negative count");

  std::set<std::string> top = fuzz::Names(s.scratch.root());
  top.erase("error.log");
  if (top != std::set<std::string>{"a"} || fuzz::Names(s.scratch / "a") != std::set<std::string>{"b"} ||
      fuzz::Names(s.work) != std::set<std::string>{"dest", "in.zip"}) {
    fuzz::Fail("extraction wrote outside its destination");
  }
  if (fuzz::Names("/") != s.rootNames) fuzz::Fail("extraction wrote into the root folder");

  std::error_code ec;
  std::filesystem::permissions(dest, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(dest, ec);
  if (ec) fuzz::Fail("the destination cannot be cleared: " + ec.message());
  return 0;
}
