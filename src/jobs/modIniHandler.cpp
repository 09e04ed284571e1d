// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "jobs/modIniHandler.h"
namespace orvKestrel {
std::string GetJobString(FileSystem&, const std::string&, const std::string&, const std::string& Vorgabe, const std::string&, std::int16_t) { return Vorgabe; }
void WriteJobString(FileSystem&, const std::string&, const std::string&, const std::string&, const std::string&) {}
std::string GetLangString(FileSystem&, const std::string&, const std::string&, const std::string& Vorgabe, const std::string&, std::int16_t) { return Vorgabe; }
}  // namespace orvKestrel
