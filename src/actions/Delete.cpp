// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

bool Engine::Kill(const std::string&) { return false; }
void Engine::DeleteSourceFile(const std::string&, job&) {}
void Engine::DeleteZipSourceFile(const std::string&, job&) {}
void Engine::DeleteFile(const std::string&, job&) {}
void Engine::DeleteFiles(FileList&, job&) {}
void Engine::DeleteSyncFiles(FileList&, job&) {}
void Engine::CheckEmptyFolder(const std::string&, job&) {}
void Engine::RemoveEmptyFolders(const std::string&, job&) {}

}  // namespace orvKestrel
