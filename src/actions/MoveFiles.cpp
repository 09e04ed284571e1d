// Move: built like the copy; the differences live in the shared per-file steps.
#include "actions/Actions.h"
#include "actions/Transfer.h"
#include "engine/Traced.h"

namespace orvKestrel {

void MoveFiles(JobRun& run, Services& s, FileList& sArray) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", run.Job());
  actions::TransferFiles(run, s, sArray, actions::Kind::Move);
}

}  // namespace orvKestrel
