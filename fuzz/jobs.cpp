// The job reader on a folder with one job file of arbitrary bytes. Besides not crashing:
//  - the file gives exactly one record or is reported as unreadable, and reading changes nothing;
//  - a file that reads writes back the run state a pass keeps ("Status", "Counter", "IntState")
//    and still reads afterwards, with every other field as it was.
#include "FuzzSupport.h"

#include <orvKestrel/clsJobs.h>

#include "jobs/JobFields.h"
#include "jobs/modIniHandler.h"
#include "platform/FileSystem.h"

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

using namespace orvKestrel;

namespace {

// Every field as text, with the fields that a pass writes left out.
std::vector<std::string> Fields(const job& j) {
  std::vector<std::string> out;
  ForEachField(j, [&](std::string_view name, const auto& value) {
    if (name == "Status" || name == "Counter" || name == "IntervalState") return;
    using V = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<V, std::string>) {
      out.push_back(value);
    } else if constexpr (std::is_same_v<V, double>) {
      out.push_back(std::to_string(std::bit_cast<std::uint64_t>(value)));
    } else {
      out.push_back(std::to_string(value));
    }
  });
  return out;
}

Host FixedHost() {
  Host h;
  h.clock = Clock::FixedAt(1795000000);  // a date default must not change between two reads
  return h;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static fuzz::Scratch scratch;
  static const std::string dir = scratch / "jobs";
  static const bool made = std::filesystem::create_directories(dir);
  (void)made;
  const std::string path = dir + "/a.kjb";
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  fuzz::Put(path, bytes);

  clsJobs jobs(FixedHost());
  const std::vector<job> read = jobs.GetJobs(dir + "/");
  if (read.size() + (jobs.LastReadFailed() ? 1 : 0) != 1) fuzz::Fail("neither a record nor a failure");
  if (fuzz::Get(path) != bytes) fuzz::Fail("reading changed the job file");

  if (!read.empty()) {
    FileSystem fs;
    WriteJobString(fs, "Job", "Status", "5", path);
    WriteJobString(fs, "Job", "Counter", "-1", path);
    WriteJobString(fs, "Job", "IntState", "22.11.2026 10:00:00", path);
    const std::vector<job> again = jobs.GetJobs(dir + "/", "a.kjb");
    if (again.size() != 1) fuzz::Fail("the job file no longer reads after the run state was written");
    if (again[0].Status != "5" || again[0].Counter != -1 ||
        again[0].IntervalState != "22.11.2026 10:00:00") {
      fuzz::Fail("the run state written does not read back");
    }
    if (Fields(again[0]) != Fields(read[0])) fuzz::Fail("writing the run state changed another field");
    if (fuzz::Names(dir) != std::set<std::string>{"a.kjb"}) fuzz::Fail("a write left a file behind");
  }
  std::filesystem::remove(scratch / "error.log");
  return 0;
}
