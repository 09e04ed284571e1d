// The least the kernel must be asked for what the engine promises, written as plainly as
// possible and spread over a few threads, with no decisions, events or checks: what no version
// of the engine can beat on this machine. The benchmarks print the engine's time against it
// beside the peer tools' times, so that a ratio that misses its goal tells whether the engine's
// own work or the kernel's stands in the way.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace floor_bench {

// The files below a root of one level of folders (as the benchmarks make them), in listing
// order, each as its folder's index and its name; the folders are opened once, so that a look-up
// resolves one name, not a whole path.
class Tree {
 public:
  explicit Tree(const std::string& root) {
    for (const auto& folder : std::filesystem::directory_iterator(root)) {
      names_.push_back(folder.path().filename().string());
      for (const auto& f : std::filesystem::directory_iterator(folder)) {
        files_.emplace_back(names_.size() - 1, f.path().filename().string());
      }
    }
  }
  std::size_t size() const { return files_.size(); }
  const std::pair<std::size_t, std::string>& operator[](std::size_t i) const { return files_[i]; }
  // The same folders below another root, made where missing, opened for reading.
  std::vector<int> Open(const std::string& root) const {
    std::vector<int> fds;
    for (const auto& name : names_) {
      std::filesystem::create_directories(root + "/" + name);
      fds.push_back(::open((root + "/" + name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    return fds;
  }

 private:
  std::vector<std::string> names_;
  std::vector<std::pair<std::size_t, std::string>> files_;
};

inline void CloseAll(const std::vector<int>& fds) {
  for (const int fd : fds) ::close(fd);
}

// Runs each(i) for i below n on `threads` threads that take the next index in turn, as the
// engine's workers take the next file of the list.
inline void InTurn(std::size_t n, unsigned threads, const std::function<void(std::size_t)>& each) {
  std::atomic<std::size_t> next{0};
  std::vector<std::jthread> pool;
  for (unsigned t = 0; t < threads; ++t) {
    pool.emplace_back([&] {
      for (std::size_t i; (i = next++) < n;) each(i);
    });
  }
}

// The link of an unnamed file under a name; without the privilege to link a descriptor
// directly, through its name in /proc.
inline void LinkUnnamed(int fd, int dir, const std::string& name) {
  if (::linkat(fd, "", dir, name.c_str(), AT_EMPTY_PATH) == 0) return;
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  ::linkat(AT_FDCWD, self.c_str(), dir, name.c_str(), AT_SYMLINK_FOLLOW);
}

// A durable copy of every file of src into dst, structure kept: the source opened and read into
// an unnamed new file, its mode and times set, flushed, then linked under its name.
inline void CopyTree(const std::string& src, const std::string& dst, unsigned threads) {
  const Tree tree(src);
  const std::vector<int> from = tree.Open(src), to = tree.Open(dst);
  InTurn(tree.size(), threads, [&](std::size_t i) {
    const auto& [folder, name] = tree[i];
    const int in = ::openat(from[folder], name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat st {};
    if (in < 0 || ::fstat(in, &st) != 0) return;
    const int out = ::openat(to[folder], ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600);
    if (out >= 0) {
      const auto size = static_cast<std::size_t>(st.st_size);
      const bool copied = ::copy_file_range(in, nullptr, out, nullptr, size, 0) == st.st_size;
      const struct timespec times[2] = {st.st_atim, st.st_mtim};
      if (copied && ::fchmod(out, st.st_mode & 07777) == 0 && ::futimens(out, times) == 0 &&
          ::fsync(out) == 0) {
        LinkUnnamed(out, to[folder], name);
      }
      ::close(out);
    }
    ::close(in);
  });
  CloseAll(from);
  CloseAll(to);
}

// What a synchronisation of two equal trees must ask in one direction: the listing of the one
// side and the status of each file on both sides.
inline void StatBothSides(const std::string& from, const std::string& to, unsigned threads) {
  const Tree tree(from);
  const std::vector<int> a = tree.Open(from), b = tree.Open(to);
  InTurn(tree.size(), threads, [&](std::size_t i) {
    const auto& [folder, name] = tree[i];
    struct stat st {};
    ::fstatat(a[folder], name.c_str(), &st, 0);
    ::fstatat(b[folder], name.c_str(), &st, 0);
  });
  CloseAll(a);
  CloseAll(b);
}

}  // namespace floor_bench
