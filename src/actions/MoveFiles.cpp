// Move: built like the copy; the differences live in the shared per-file steps.
#include "actions/Actions.h"
#include "actions/Transfer.h"

namespace orvKestrel {

void MoveFiles(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, "clsKestrel", "Sub MoveFiles",
         [&] { return ParamText({{"sArray", kArrayParam}, {"job", kJobParam}}); });
  actions::TransferFiles(run, s, sArray, actions::Kind::Move);
}

}  // namespace orvKestrel
