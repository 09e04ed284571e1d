// A file that the host writes (--log, --trace, --error-log): opened by path, reopened on
// request (log rotation), and a write that fails is said on stderr once, naming the file.
#pragma once

#include <orvKestrel/hostio.h>

#include <memory>
#include <string>

#include "OutputBuffer.h"

namespace kestrel {

class HostFile {
 public:
  // what: how stderr names it ("log file"); append: added to, else emptied at the first open;
  // lazy: opened by the first write, so that a run without one leaves no empty file.
  HostFile(std::string path, const char* what, bool append, bool lazy = false);

  // Opens the file (a lazy one only on its first write); false, said on stderr, when it cannot
  // be opened. An unnamed file opens as nothing.
  bool Open();
  // After a rotation: writes out what is pending, then opens the file again, appending, when it
  // was open.
  void Reopen();
  bool Named() const { return !path_.empty(); }
  bool IsOpen() const { return file_ != nullptr; }
  // Writes text through a buffer (see OutputBuffer); a failure is said on stderr once until a
  // write succeeds again.
  void Write(const std::string& text);

 private:
  bool OpenNow();
  void Put(const std::string& text);  // the buffer's writer
  std::string path_;
  const char* what_;
  bool append_;
  bool lazy_;
  orvKestrel::OutputFile file_;
  bool failing_ = false;
  std::unique_ptr<OutputBuffer> buffer_;  // made with the first open; goes before file_
};

}  // namespace kestrel
