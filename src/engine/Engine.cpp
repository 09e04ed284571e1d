#include "engine/Engine.h"
#include "engine/Traced.h"

#include "zip/modZIP32vb.h"

namespace orvKestrel {

// Not traced: it may run on another thread than the run, and the trace is the run's.
void Engine::StopMsg(bool bStop) {
  svc.Yield();
  if (svc.zipping.load()) {
    svc.zip->CancelZip();
    svc.Yield();
  }
  if (svc.zipping.load()) {
    svc.zip->CancelZip();
    svc.Yield();
  }
  svc.stop.store(bStop);
  svc.Yield();
}

void Engine::FireCurrentJob(const std::string& sFileName, std::int32_t lIndex,
                            std::int32_t lCounter, std::int16_t iStatus, std::int16_t IntervalType,
                            std::int16_t IntervalTimeType, const std::string& IntervalTime,
                            const std::string& IntervalDate, std::int16_t IntervalWeekDay,
                            std::int16_t IntervalMonthDay) {
  Proc p(svc.trap, Traced(__func__), "sFileName", sFileName, "lIndex", lIndex, "lCounter", lCounter,
         "iStatus", iStatus, "IntervalType", Optional(IntervalType), "IntervalTimeType",
         Optional(IntervalTimeType), "IntervalTime", Optional(IntervalTime), "IntervalDate",
         Optional(IntervalDate), "IntervalWeekDay", Optional(IntervalWeekDay), "IntervalMonthDay",
         Optional(IntervalMonthDay));
  if (svc.events) {
    svc.events->CurrentJob(sFileName, lIndex, lCounter, iStatus, IntervalType, IntervalTimeType,
                           IntervalTime, IntervalDate, IntervalWeekDay, IntervalMonthDay);
  }
}

void Engine::LoadLogMessages(const std::string& sLanguagePath) {
  Proc p(svc.trap, Traced(__func__), "sLanguagePath", sLanguagePath);
  // Once per object: a later call with another language keeps the first texts.
  if (catalogueLoaded) return;
  p.Do([&] { svc.catalogue.LoadLogMessages(svc.fs, sLanguagePath); });
}

void Engine::SetMsgIDs() {
  Proc p(svc.trap, Traced(__func__));
  svc.catalogue.SetMsgIDs();
}

}  // namespace orvKestrel
