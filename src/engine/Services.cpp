#include "engine/Services.h"
#include "engine/Traced.h"

#include "selection/DestinationMemo.h"
#include "selection/RegExp.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {

Services::Services(Host h, FaultPoints* faults)
    : host(std::move(h)), fs(faults), zip(std::make_unique<ZipLibrary>(fs)) {
  zip->InitZip();
}

Services::~Services() = default;

void Services::Yield() {
  if (host.yield) host.yield();
}

void Services::FireLogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView,
                              bool bFile, bool bSameView, bool bIsLast) {
  Proc p(trap, Traced(__func__), "LogMsg", LogMsg, "MsgID", MsgID, "bView", bView, "bFile", bFile,
         "bSameView", bSameView, "bIsLast", Optional(bIsLast));
  Yield();
  if (events) events->LogMessage(LogMsg, MsgID, bView, bFile, bSameView, bIsLast);
}

void Services::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  Proc p(trap, Traced(__func__), "lAllFiles", lAllFiles, "lCurrFile", lCurrFile);
  // Callers pass zero-based positions; the event carries counts.
  if (events) events->KestrelCounter(lAllFiles + 1, lCurrFile + 1);
}

}  // namespace orvKestrel
