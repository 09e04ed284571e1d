// Services for hosts: the few looks at files, terminals and locks that a host needs around the
// engine's calls, so that a host makes no system call of its own.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
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

namespace hostio {

enum class Kind { Missing, File, Folder, Other };
// What path names, links followed.
Kind KindOf(const std::string& path);
// The size of a regular file (links followed); nullopt for anything else.
std::optional<std::uint64_t> FileSize(const std::string& path);
// Whether the stream is a terminal.
bool IsTerminal(std::FILE* stream);
// The path of the running program, links resolved; empty when the system does not say.
std::string OwnExecutable();
// Replaces path with text in one step (a temporary file beside it, flushed, then renamed), so
// that a reader sees the old or the new text, never a part. Empty on success, else why not.
std::string WriteFileAtomically(const std::string& path, const std::string& text);
// True when another pass holds the lock of the job folder (its passes take turns).
bool FolderBusy(const std::string& folder);

}  // namespace hostio
}  // namespace orvKestrel
