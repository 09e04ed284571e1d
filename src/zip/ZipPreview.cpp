// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

void Engine::Zip_Preview(FileList&, job&) {}
std::string Engine::GetZipFileNamePreview(job&, const std::string&, const std::string&) { return {}; }

}  // namespace orvKestrel
