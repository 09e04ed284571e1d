// Files that a host writes its log and trace to.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace orvKestrel {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using OutputFile = std::unique_ptr<std::FILE, FileCloser>;

// Opens path for writing (append: at its end; else emptied), creating it. A pipe that nobody
// reads is refused at once (ENXIO) instead of hanging the open; one that is read is taken, as
// a regular file or a character device is. Null with errno set when refused.
OutputFile OpenOutputFile(const std::string& path, bool append);

}  // namespace orvKestrel
