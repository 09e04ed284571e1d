#include "engine/Services.h"

#include "selection/RegExp.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {

Services::Services(Host h) : host(std::move(h)), zip(std::make_unique<ZipLibrary>(fs)) {
  zip->InitZip();
}

Services::~Services() = default;

void Services::Yield() {
  if (host.yield) host.yield();
}

void Services::FireLogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView,
                              bool bFile, bool bSameView, bool bIsLast) {
  Proc p(trap, "clsKestrel", "Sub FireLogMessage", [&] {
    return ParamText({{"LogMsg", LogMsg},
                      {"MsgID", std::to_string(MsgID)},
                      {"bView", BoolText(bView)},
                      {"bFile", BoolText(bFile)},
                      {"bSameView", BoolText(bSameView)},
                      {"bIsLast", Opt(BoolText(bIsLast))}});
  });
  Yield();
  if (events) events->LogMessage(LogMsg, MsgID, bView, bFile, bSameView, bIsLast);
}

void Services::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  Proc p(trap, "clsKestrel", "Sub KestrelCounter", [&] {
    return ParamText(
        {{"lAllFiles", std::to_string(lAllFiles)}, {"lCurrFile", std::to_string(lCurrFile)}});
  });
  // Callers pass zero-based positions; the event carries counts.
  if (events) events->KestrelCounter(lAllFiles + 1, lCurrFile + 1);
}

}  // namespace orvKestrel
