#include "Progress.h"

#include <fmt/format.h>

#include "JsonText.h"

namespace kestrel {

Progress::Progress(std::FILE* err, std::chrono::seconds every)
    : err_(err), every_(every), next_(start_ + every) {}

void Progress::Files(std::int32_t all, std::int32_t current) {
  // A new step (another list, or counting from the start again) has a pace of its own.
  if (all != all_ || current < current_) stepStart_ = Clock::now();
  all_ = all;
  current_ = current;
  Tick();
}

std::string Progress::Figures() const {
  const auto now = Clock::now();
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::string text = fmt::format("{} bytes in {:.0f} s ({:.0f} bytes/s)", bytes_, seconds,
                                 seconds > 0 ? bytes_ / seconds : 0.0);
  if (current_ > 0 && current_ < all_) {
    const double step = std::chrono::duration<double>(now - stepStart_).count();
    text += fmt::format(", about {:.0f} s left", step / current_ * (all_ - current_));
  }
  return text;
}

void Progress::Tick() {
  if (every_.count() == 0 || std::this_thread::get_id() != owner_) return;
  const auto now = Clock::now();
  if (now < next_) return;
  // A long quiet stretch does not make the lines come in a burst afterwards.
  next_ = now + every_;
  const std::string job = job_.empty() ? "" : " " + EscapeControls(job_) + ":";
  const std::string line =
      fmt::format("kestrel: progress:{} file {} of {}, {}\n", job, current_, all_, Figures());
  std::fputs(line.c_str(), err_);
  std::fflush(err_);
}

}  // namespace kestrel
