#include "jobs/JobReader.h"

#include <orvKestrel/inspect.h>

#include "errortrap/modFailSafeLITE.h"
#include "jobs/JobFields.h"
#include "jobs/Profile.h"
#include "platform/DateText.h"
#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <fmt/format.h>

namespace orvKestrel {
namespace {

// Text handed to the profile reader: a value is cut to 255 characters.
constexpr int kValueSize = 256;

std::string RangeOf(Conversion c) {
  switch (c) {
    case Conversion::Int16:
    case Conversion::Int16Text: return "-32768..32767";
    case Conversion::Int32: return "-2147483648..2147483647";
    default: return "the range of a number";
  }
}

// An error that tells the user which line of which file to fix.
KestrelError KeyError(const KestrelError& e, const KeyField& k, const std::string& text,
                      const std::string& path) {
  const std::string where =
      fmt::format("{} in {}, section [{}], key \"{}\"", e.Description(), path, k.section, k.key);
  if (e.Number() == kErrOverflow) {
    return KestrelError(e.Number(),
                        fmt::format("{}: \"{}\" is outside {}", where, text, RangeOf(k.conversion)));
  }
  return KestrelError(e.Number(), fmt::format("{}: \"{}\" is not a number", where, text));
}

job ReadJob(FileSystem& fs, const Host& host, const std::string& path) {
  Profile profile;
  try {
    profile = Profile::Load(fs, path);
  } catch (const KestrelError& e) {
    throw KestrelError(e.Number(), e.Description() + ": " + path);
  }
  job j;
  for (const KeyField& k : KeyTable()) {
    const std::string def = k.defaultText == kToday
                                ? datetext::FormatDate(host.clock.Now(), host.shortDateFormat)
                                : std::string(k.defaultText);
    const std::string text = profile.Get(k.section, k.key, def, kValueSize);
    try {
      ConvertInto(j, k, text);
    } catch (const KestrelError& e) {
      throw KeyError(e, k, text, path);
    }
  }
  return j;
}

// The names that a listing of sJobDir followed by "*" yields for ordinary files, in the order of
// the file system: the text after the last "/" is a prefix of the names, the text before it the
// folder. Folders and hidden names are left out.
std::vector<std::string> ListJobDir(FileSystem& fs, const std::string& sJobDir) {
  const auto slash = sJobDir.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : sJobDir.substr(0, slash);
  const std::string prefix = slash == std::string::npos ? sJobDir : sJobDir.substr(slash + 1);
  std::vector<std::string> names;
  const auto entries = fs.ListFolder(folder);
  if (!entries) return names;
  for (const DirEntry& e : *entries) {
    if (e.isDir || e.name.starts_with('.') || !e.name.starts_with(prefix)) continue;
    // Links to files count; links to folders, devices and pipes do not.
    if (!fs.FileExists(paths::BuildPath(folder, e.name))) continue;
    names.push_back(e.name);
  }
  return names;
}

bool IsJobFile(const std::string& path) {
  return paths::LowerAscii("." + paths::GetExtensionName(path)) == ".kjb";
}

}  // namespace

std::vector<job> ReadJobs(FileSystem& fs, FailSafe& trap, const Host& host,
                          const std::string& sJobDir, const std::string& sFile, bool* failed) {
  Proc p(trap, "clsJobs", "Function GetJobs",
         [&] { return ParamText({{"sJobDir", sJobDir}, {"sFile", Opt(sFile)}}); });
  if (failed != nullptr) *failed = false;
  std::vector<job> jobs;
  const std::vector<std::string> names =
      sFile.empty() ? ListJobDir(fs, sJobDir) : std::vector<std::string>{sFile};
  for (const std::string& name : names) {
    const std::string path = paths::BuildPath(sJobDir, name);
    if (!IsJobFile(path)) continue;
    bool read = false;
    // Retry reads the file again (the user may have fixed it), Ignore passes over it, Leave
    // ends the listing; the records read before stay.
    const bool goOn = p.Do([&] {
      jobs.push_back(ReadJob(fs, host, path));
      read = true;
    });
    if (read) continue;
    if (failed != nullptr) *failed = true;
    if (!goOn) break;
  }
  return jobs;
}

std::vector<JobFileReading> ReadJobFiles(const Host& host, const std::string& sJobDir,
                                         const std::string& sFile) {
  FileSystem fs;
  std::vector<JobFileReading> out;
  const std::vector<std::string> names =
      sFile.empty() ? ListJobDir(fs, sJobDir) : std::vector<std::string>{sFile};
  for (const std::string& name : names) {
    const std::string path = paths::BuildPath(sJobDir, name);
    if (!IsJobFile(path)) continue;
    JobFileReading r{name, std::nullopt, {}};
    try {
      r.record = ReadJob(fs, host, path);
    } catch (const KestrelError& e) {
      r.error = e.Description();
    }
    out.push_back(std::move(r));
  }
  return out;
}

}  // namespace orvKestrel
