// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include "engine/Engine.h"

namespace orvKestrel {

FileList Engine::FilterAttributes(FileList&, job&) { return {}; }
void Engine::SetDestAttributes(const std::string&, job&) {}
void Engine::SetSourceAttributes(const std::string&, job&) {}
void Engine::SetAttribute(std::uint32_t, const std::string&) {}
void Engine::UnsetAttribute(std::uint32_t, const std::string&) {}

}  // namespace orvKestrel
