#include "engine/Engine.h"

#include "selection/RegExp.h"
#include "zip/modZIP32vb.h"

namespace orvKestrel {

Engine::Engine(Host h) : host(std::move(h)), zip(std::make_unique<ZipLibrary>(fs)) {
  zip->InitZip();
}

Engine::~Engine() = default;

void Engine::Yield() {
  if (host.yield) host.yield();
}

// Not traced: it may run on another thread than the run, and the trace is the run's.
void Engine::StopMsg(bool bStop) {
  Yield();
  if (zipping.load()) {
    zip->CancelZip();
    Yield();
  }
  if (zipping.load()) {
    zip->CancelZip();
    Yield();
  }
  stop.store(bStop);
  Yield();
}

void Engine::FireLogMessage(const std::string& LogMsg, std::int16_t MsgID, bool bView, bool bFile,
                            bool bSameView, bool bIsLast) {
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

void Engine::FireCurrentJob(const std::string& sFileName, std::int32_t lIndex,
                            std::int32_t lCounter, std::int16_t iStatus, std::int16_t IntervalType,
                            std::int16_t IntervalTimeType, const std::string& IntervalTime,
                            const std::string& IntervalDate, std::int16_t IntervalWeekDay,
                            std::int16_t IntervalMonthDay) {
  Proc p(trap, "clsKestrel", "Sub FireCurrentJob", [&] {
    return ParamText({{"sFileName", sFileName},
                      {"lIndex", std::to_string(lIndex)},
                      {"lCounter", std::to_string(lCounter)},
                      {"iStatus", std::to_string(iStatus)},
                      {"IntervalType", Opt(std::to_string(IntervalType))},
                      {"IntervalTimeType", Opt(std::to_string(IntervalTimeType))},
                      {"IntervalTime", Opt(IntervalTime)},
                      {"IntervalDate", Opt(IntervalDate)},
                      {"IntervalWeekDay", Opt(std::to_string(IntervalWeekDay))},
                      {"IntervalMonthDay", Opt(std::to_string(IntervalMonthDay))}});
  });
  if (events) {
    events->CurrentJob(sFileName, lIndex, lCounter, iStatus, IntervalType, IntervalTimeType,
                       IntervalTime, IntervalDate, IntervalWeekDay, IntervalMonthDay);
  }
}

void Engine::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  Proc p(trap, "clsKestrel", "Sub KestrelCounter", [&] {
    return ParamText(
        {{"lAllFiles", std::to_string(lAllFiles)}, {"lCurrFile", std::to_string(lCurrFile)}});
  });
  // Callers pass zero-based positions; the event carries counts.
  if (events) events->KestrelCounter(lAllFiles + 1, lCurrFile + 1);
}

void Engine::LoadLogMessages(const std::string& sLanguagePath) {
  Proc p(trap, "clsKestrel", "Sub LoadLogMessages", [&] {
    return ParamText({{"sLanguagePath", sLanguagePath}});
  });
  // Once per object: a later call with another language keeps the first texts.
  if (catalogueLoaded) return;
  p.Do([&] { catalogue.LoadLogMessages(fs, sLanguagePath); });
}

void Engine::SetMsgIDs() {
  Proc p(trap, "clsKestrel", "Sub SetMsgIDs");
  catalogue.SetMsgIDs();
}

}  // namespace orvKestrel
