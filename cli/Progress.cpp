#include "Progress.h"

#include <fmt/format.h>

#include "JsonText.h"

namespace kestrel {

Progress::Progress(std::FILE* err, std::chrono::seconds every)
    : err_(err), every_(every), next_(start_ + every) {}

void Progress::Files(std::int32_t all, std::int32_t current) {
  all_ = all;
  current_ = current;
  Tick();
}

void Progress::Tick() {
  if (every_.count() == 0 || std::this_thread::get_id() != owner_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  // A long quiet stretch does not make the lines come in a burst afterwards.
  next_ = now + every_;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const std::string job = job_.empty() ? "" : " " + EscapeControls(job_) + ":";
  const std::string line =
      fmt::format("kestrel: progress:{} file {} of {}, {} bytes in {:.0f} s ({:.0f} bytes/s)\n",
                  job, current_, all_, bytes_, seconds, seconds > 0 ? bytes_ / seconds : 0.0);
  std::fputs(line.c_str(), err_);
  std::fflush(err_);
}

}  // namespace kestrel
