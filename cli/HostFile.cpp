#include "HostFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "JsonText.h"

namespace kestrel {

HostFile::HostFile(std::string path, const char* what, bool append, bool lazy)
    : path_(std::move(path)), what_(what), append_(append), lazy_(lazy) {}

bool HostFile::Open() { return lazy_ || OpenNow(); }

void HostFile::Reopen() {
  if (!file_) return;
  buffer_->Flush();
  OpenNow();
}

bool HostFile::OpenNow() {
  if (path_.empty()) return true;
  orvKestrel::OutputFile f = orvKestrel::OpenOutputFile(path_, append_ || file_ != nullptr);
  if (!f) {
    std::fprintf(stderr, "kestrel: cannot open %s %s: %s\n", what_,
                 EscapeControls(path_).c_str(),
                 errno == ENXIO ? "a pipe that nobody reads" : std::strerror(errno));
    return false;
  }
  file_ = std::move(f);
  if (!buffer_) buffer_ = std::make_unique<OutputBuffer>([this](const std::string& t) { Put(t); });
  return true;
}

void HostFile::Write(const std::string& text) {
  if (!file_ && lazy_ && !failing_ && !OpenNow()) failing_ = true;
  if (file_) buffer_->Add(text);
}

void HostFile::Put(const std::string& text) {
  errno = 0;
  const bool ok = std::fwrite(text.data(), 1, text.size(), file_.get()) == text.size() &&
                  std::fflush(file_.get()) == 0;
  if (ok) {
    failing_ = false;
  } else if (!failing_) {
    failing_ = true;
    std::fprintf(stderr, "kestrel: cannot write %s %s: %s\n", what_,
                 EscapeControls(path_).c_str(), std::strerror(errno != 0 ? errno : EIO));
  }
}

}  // namespace kestrel
