#include "zip/ZipCommon.h"

#include "actions/Transfer.h"
#include "platform/Paths.h"
#include "platform/SysError.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <unordered_set>

namespace orvKestrel::zipcommon {

std::int32_t GradeValue(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  const auto last = text.find_last_not_of(" \t");
  if (first == std::string::npos) throw KestrelError(kErrTypeMismatch, "Type mismatch");
  const std::string t = text.substr(first, last - first + 1);
  char* end = nullptr;
  const double v = std::strtod(t.c_str(), &end);
  if (end != t.c_str() + t.size() || t.find_first_of("xXnNiIpP") != std::string::npos) {
    throw KestrelError(kErrTypeMismatch, "Type mismatch");
  }
  const double r = std::nearbyint(v);  // the default rounding mode rounds half to even
  if (r < std::numeric_limits<std::int32_t>::min() || r > std::numeric_limits<std::int32_t>::max()) {
    throw KestrelError(kErrOverflow, "Overflow");
  }
  return static_cast<std::int32_t>(r);
}

std::string BaseFolder(const std::string& file, const job& job) {
  if (job.ZipIntStruct == 0) {
    const auto pos = file.rfind('/');
    return pos == std::string::npos ? std::string() : file.substr(0, pos + 1);
  }
  const auto pos = job.From.rfind('/');
  return pos == std::string::npos ? std::string() : job.From.substr(0, pos);
}

std::string SingleNameInTo(const job& job, const std::string& sFile) {
  const std::string ext = paths::GetExtensionName(sFile);
  return paths::BuildPath(job.To, paths::GetFileName(paths::ReplaceAll(sFile, "." + ext, ".zip")));
}

void RefuseAsTheRunWould(Services& s, const job& job, const std::string& folder) {
  const std::string sub = actions::RelativeTo(folder, job.To);
  if (sub.empty()) return;
  if (auto refused = s.fs.RefusedBeneath(job.To, sub)) throw std::move(*refused);
}

namespace {

struct IdentityHash {
  std::size_t operator()(const FileIdentity& id) const {
    return std::hash<std::uint64_t>()(id.inode * 31 + id.device);
  }
};
struct SameObject {
  bool operator()(const FileIdentity& a, const FileIdentity& b) const { return a.SameObject(b); }
};
using IdentitySet = std::unordered_set<FileIdentity, IdentityHash, SameObject>;

// The archive of the file (or of the job) before the existing-archive policy, without making a
// folder.
std::string OwnArchiveName(Services& s, job& job, const std::string& file) {
  if (job.ZipAll == 0) return paths::BuildPath(job.To, job.JobName + ".zip");
  if (job.ZipExtStruct == 0) return SingleNameInTo(job, file);
  return paths::BuildPath(HandlePreviewFolders(s, file, job), paths::GetFileName(file) + ".zip");
}

void AddIdentity(Services& s, IdentitySet& set, const std::string& path) {
  try {
    set.insert(s.fs.Identify(path));
  } catch (const std::exception&) {
    // not there (yet): no source can be it
  }
}

}  // namespace

bool LeaveOutOwnArchives(Services& s, FileList& sArray, job& job) {
  IdentitySet archives;
  if (job.ZipAll == 0) {
    AddIdentity(s, archives, OwnArchiveName(s, job, {}));
  } else {
    for (const std::string& file : sArray) AddIdentity(s, archives, OwnArchiveName(s, job, file));
  }
  if (archives.empty()) return !sArray.empty();
  std::erase_if(sArray, [&](const std::string& file) {
    try {
      return archives.count(s.fs.Identify(file)) != 0;
    } catch (const std::exception&) {
      return false;  // its own error comes when it is read
    }
  });
  return !sArray.empty();
}

void LogCount(Services& s, std::size_t files) {
  if (files == 1) {
    s.Log(kMsgFileFound, s.T(kMsgFileFound) + "1", true, true, false);
  } else {
    s.Log(kMsgFilesFound, s.T(kMsgFilesFound) + std::to_string(files), true, true, false);
  }
}

}  // namespace orvKestrel::zipcommon
