// Move: built like the copy; the differences live in the shared per-file steps.
#include "actions/Transfer.h"
#include "engine/Engine.h"

namespace orvKestrel {

void Engine::MoveFiles(FileList& sArray, job& job) {
  Proc p(trap, "clsKestrel", "Sub MoveFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  actions::TransferFiles(*this, sArray, job, actions::Kind::Move);
}

}  // namespace orvKestrel
