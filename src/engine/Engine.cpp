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
  Yield();
  if (events) events->LogMessage(LogMsg, MsgID, bView, bFile, bSameView, bIsLast);
}

void Engine::FireCurrentJob(const std::string& sFileName, std::int32_t lIndex,
                            std::int32_t lCounter, std::int16_t iStatus,
                            std::int16_t IntervalType, std::int16_t IntervalTimeType,
                            const std::string& IntervalTime, const std::string& IntervalDate,
                            std::int16_t IntervalWeekDay, std::int16_t IntervalMonthDay) {
  if (events) {
    events->CurrentJob(sFileName, lIndex, lCounter, iStatus, IntervalType, IntervalTimeType,
                       IntervalTime, IntervalDate, IntervalWeekDay, IntervalMonthDay);
  }
}

void Engine::KestrelCounter(std::int32_t lAllFiles, std::int32_t lCurrFile) {
  if (events) events->KestrelCounter(lAllFiles + 1, lCurrFile + 1);
}

void Engine::LoadLogMessages(const std::string& sLanguagePath) {
  if (catalogueLoaded) return;
  catalogue.LoadLogMessages(fs, sLanguagePath);
}

void Engine::SetMsgIDs() { catalogue.SetMsgIDs(); }

}  // namespace orvKestrel
