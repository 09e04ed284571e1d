// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

void Engine::Preview(FileList&, job&, const std::string&) {}
void Engine::DeleteFilesPreview(FileList&, job&) {}
void Engine::DeleteSyncFilesPreview(FileList&, job&) {}

}  // namespace orvKestrel
