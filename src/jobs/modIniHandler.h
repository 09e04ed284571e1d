// Reading and writing profile (INI) files: job files and language files.
#pragma once

#include <cstdint>
#include <string>

namespace orvKestrel {

class FileSystem;

// Key Titel of section Sektion, or Vorgabe when the file, section or key is missing; cut to
// nSize - 1 characters.
std::string GetJobString(FileSystem& fs, const std::string& Sektion, const std::string& Titel,
                         const std::string& Vorgabe, const std::string& m_sCurrJobFile,
                         std::int16_t nSize = 256);
// Sets key Name of section to Value, creating file, section or key; replaces the file atomically.
void WriteJobString(FileSystem& fs, const std::string& section, const std::string& Name,
                    const std::string& Value, const std::string& m_sCurrJobFile);
std::string GetLangString(FileSystem& fs, const std::string& Sektion, const std::string& Titel,
                          const std::string& Vorgabe, const std::string& sLanguage,
                          std::int16_t nSize = 256);

}  // namespace orvKestrel
