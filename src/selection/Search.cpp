// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

void Engine::Search(job&, bool, bool) {}
void Engine::FindFiles(const std::string&, const std::string&, bool, job&) {}
void Engine::GetFilesInFolder(const std::string&, const std::string&, job&) {}
std::string Engine::HandleFolders(const std::string&, job&) { return {}; }
std::string Engine::HandlePreviewFolders(const std::string&, job&) { return {}; }

}  // namespace orvKestrel
