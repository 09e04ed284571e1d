#include "jobs/modIniHandler.h"

#include "jobs/Profile.h"
#include "platform/FileSystem.h"
#include "platform/SysError.h"

#include <optional>

namespace orvKestrel {

std::string GetJobString(FileSystem& fs, const std::string& Sektion, const std::string& Titel,
                         const std::string& Vorgabe, const std::string& m_sCurrJobFile,
                         std::int16_t nSize) {
  return Profile::Load(fs, m_sCurrJobFile).Get(Sektion, Titel, Vorgabe, nSize);
}

void WriteJobString(FileSystem& fs, const std::string& section, const std::string& Name,
                    const std::string& Value, const std::string& m_sCurrJobFile) {
  const std::optional<std::string> old = fs.ReadSmallFile(m_sCurrJobFile, Profile::kMaxBytes);
  fs.WriteFileAtomic(m_sCurrJobFile, SetProfileValue(old.value_or(""), section, Name, Value));
}

std::string GetLangString(FileSystem& fs, const std::string& Sektion, const std::string& Titel,
                          const std::string& Vorgabe, const std::string& sLanguage,
                          std::int16_t nSize) {
  // An unreadable language file is no error: every text keeps its default.
  try {
    return Profile::Load(fs, sLanguage).Get(Sektion, Titel, Vorgabe, nSize);
  } catch (const KestrelError&) {
    return Profile().Get(Sektion, Titel, Vorgabe, nSize);
  }
}

}  // namespace orvKestrel
