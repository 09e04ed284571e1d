// Helpers of the kill and hostile-tree tests: starting kestrel as a child, a private folder, and
// reading a tree back.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace reliability {

namespace fs = std::filesystem;

inline void Put(const fs::path& p, const std::string& data) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary | std::ios::trunc) << data;
}

inline std::string Get(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// A folder of its own below the temporary folder, removed with everything in it.
class Scratch {
 public:
  explicit Scratch(const std::string& tag, const fs::path& base = fs::temp_directory_path()) {
    std::string tmpl = (base / ("kestrel-" + tag + "-XXXXXX")).string();
    if (::mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp");
    root_ = tmpl;
  }
  ~Scratch() {
    Unlock(root_);
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const fs::path& root() const { return root_; }
  fs::path operator/(const std::string& rel) const { return root_ / rel; }

 private:
  // Gives the owner every right on each folder below dir (a test may take some away).
  static void Unlock(const fs::path& dir) {
    std::error_code ec;
    fs::permissions(dir, fs::perms::owner_all, fs::perm_options::add, ec);
    for (const auto& e : fs::directory_iterator(dir, ec)) {
      if (e.is_directory(ec) && !e.is_symlink(ec)) Unlock(e.path());
    }
  }
  fs::path root_;
};

// kestrel with args, its standard output into outFile (or nowhere), standard error into
// errFile (or nowhere). The child runs in the folder cwd (error.log lands there).
inline pid_t StartKestrel(const std::vector<std::string>& args, const fs::path& cwd,
                          const std::string& outFile = "", const std::string& errFile = "") {
  std::vector<std::string> argv{KESTREL_BIN};
  argv.insert(argv.end(), args.begin(), args.end());
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  if (::chdir(cwd.c_str()) != 0) ::_exit(126);
  const int out = ::open(outFile.empty() ? "/dev/null" : outFile.c_str(),
                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const int err = ::open(errFile.empty() ? "/dev/null" : errFile.c_str(),
                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ::dup2(out, 1);
  ::dup2(err, 2);
  std::vector<char*> cargv;
  for (std::string& a : argv) cargv.push_back(a.data());
  cargv.push_back(nullptr);
  ::execv(cargv[0], cargv.data());
  ::_exit(127);
}

struct ChildEnd {
  int exitCode = -1;  // -1 when killed by a signal
  int signal = 0;
};

inline ChildEnd WaitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  ChildEnd end;
  if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

struct RunResult {
  int exitCode = -1;
  std::string out, err;
};

// Runs kestrel to its end.
inline RunResult RunKestrel(const std::vector<std::string>& args, const fs::path& cwd) {
  const std::string out = (cwd / ".kestrel-test-stdout").string();
  const std::string err = (cwd / ".kestrel-test-stderr").string();
  const ChildEnd end = WaitFor(StartKestrel(args, cwd, out, err));
  RunResult r{end.exitCode, Get(out), Get(err)};
  fs::remove(out);
  fs::remove(err);
  return r;
}

// Every file below root (links not followed), relative path -> contents.
inline std::map<std::string, std::string> Files(const fs::path& root) {
  std::map<std::string, std::string> out;
  if (!fs::exists(root)) return out;
  for (const auto& e : fs::recursive_directory_iterator(root)) {
    std::error_code ec;
    if (e.is_regular_file(ec) && !e.is_symlink(ec)) {
      out[fs::relative(e.path(), root).string()] = Get(e.path());
    }
  }
  return out;
}

// True when a component of the relative path begins with ".".
inline bool Hidden(const std::string& rel) {
  return rel.starts_with('.') || rel.find("/.") != std::string::npos;
}

}  // namespace reliability
