// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

std::string Engine::CleanFolderPattern(std::string&, bool) { return {}; }
std::string Engine::CleanFilePattern(std::string&, bool) { return {}; }

}  // namespace orvKestrel
