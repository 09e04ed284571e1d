#include <orvKestrel/logtexts.h>

#include "engine/Catalogue.h"
#include "platform/FileSystem.h"

namespace orvKestrel {

struct LogTexts::Impl {
  Catalogue catalogue;
};

LogTexts::LogTexts(const std::string& sLanguagePath) : m_(std::make_unique<Impl>()) {
  FileSystem fs;
  m_->catalogue.LoadLogMessages(fs, sLanguagePath);
}

LogTexts::~LogTexts() = default;
LogTexts::LogTexts(LogTexts&&) noexcept = default;
LogTexts& LogTexts::operator=(LogTexts&&) noexcept = default;

const std::string& LogTexts::Text(int n) const {
  static const std::string kNone;
  if (n < 0 || n > Catalogue::kMaxKey) return kNone;
  return m_->catalogue.Text(n);
}

}  // namespace orvKestrel
