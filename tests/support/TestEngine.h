// The engine's parts in one object for the unit tests: the run driver with its services and one
// job run, with the procedures under the names the tests call them by. Each call binds the run
// to the job it is given; the run's flags and lists stay from call to call, as in one job.
#pragma once

#include "actions/Actions.h"
#include "engine/Engine.h"
#include "selection/Selection.h"
#include "zip/Zip.h"
#include "zip/modZIP32vb.h"

#include "support/Faults.h"

#include <string>
#include <vector>

namespace orvKestrel::testing {

class TestEngine {
 public:
  explicit TestEngine(Host host = {}) : driver(std::move(host), &faults) {}
  TestEngine(const TestEngine&) = delete;
  TestEngine& operator=(const TestEngine&) = delete;

  // ----- driver -----
  void StopMsg(bool b) { driver.StopMsg(b); }
  void ExecuteAllJobs(const std::string& dir, const std::string& lang, bool verbose, bool preview,
                      bool regExp) {
    driver.ExecuteAllJobs(dir, lang, verbose, preview, regExp);
  }
  void ExecuteOneJob(const std::string& file, const std::string& dir, const std::string& lang,
                     bool startInactive, bool regEx) {
    driver.ExecuteOneJob(file, dir, lang, startInactive, regEx);
  }
  void ExecuteSingleJob(job& j, const std::string& dir, const std::string& lang,
                        bool startInactive, bool verbose) {
    driver.ExecuteSingleJob(j, dir, lang, startInactive, verbose);
  }
  JobState CheckStatus(job& j, const std::string& del) { return driver.CheckStatus(j, del); }
  std::vector<job> GetJobs(const std::string& dir, const std::string& file = "") {
    return driver.GetJobs(dir, file);
  }
  void WriteJobString(const std::string& sec, const std::string& name, const std::string& value) {
    driver.WriteJobString(sec, name, value);
  }
  void LoadLogMessages(const std::string& path) { driver.LoadLogMessages(path); }
  void SetMsgIDs() { driver.SetMsgIDs(); }
  void BeginCall() { driver.BeginCall(); }

  // ----- schedules -----
  bool CheckDailyInterval(std::string& state, std::string& time) {
    return orvKestrel::CheckDailyInterval(svc, driver.m_sCurrJobFile, state, time);
  }
  bool CheckWeeklyInterval(std::string& state, std::string& time, std::int16_t& day) {
    return orvKestrel::CheckWeeklyInterval(svc, driver.m_sCurrJobFile, state, time, day);
  }
  bool CheckMonthlyInterval(std::string& state, std::string& time, std::int16_t& day) {
    return orvKestrel::CheckMonthlyInterval(svc, driver.m_sCurrJobFile, state, time, day);
  }
  bool CheckDateInterval(std::string& state, std::string& time, std::string& date) {
    return orvKestrel::CheckDateInterval(svc, driver.m_sCurrJobFile, state, time, date);
  }
  bool CheckFreeSpace(std::int32_t& limit, const std::string& path) {
    return orvKestrel::CheckFreeSpace(svc, limit, path);
  }

  // ----- selection -----
  void Search(job& j, bool all, bool opposite) { orvKestrel::Search(On(j), svc, all, opposite); }
  void FindFiles(const std::string& folder, const std::string& mask, bool sub, job& j) {
    orvKestrel::FindFiles(On(j), svc, folder, mask, sub);
  }
  std::string CleanFolderPattern(std::string& p, bool re) {
    return orvKestrel::CleanFolderPattern(svc, p, re);
  }
  std::string CleanFilePattern(std::string& p, bool re) {
    return orvKestrel::CleanFilePattern(svc, p, re);
  }
  std::string HandleFolders(const std::string& f, job& j) {
    return orvKestrel::HandleFolders(svc, f, j);
  }
  std::string HandlePreviewFolders(const std::string& f, job& j) {
    return orvKestrel::HandlePreviewFolders(svc, f, j);
  }
  FileList FilterZip(FileList& l, job& j) { return orvKestrel::FilterZip(svc, l, j); }
  FileList FilterExtention(FileList& l, job& j) { return orvKestrel::FilterExtention(svc, l, j); }
  FileList FilterFileSize(FileList& l, job& j) { return orvKestrel::FilterFileSize(svc, l, j); }
  FileList FilterAttributes(FileList& l, job& j) {
    return orvKestrel::FilterAttributes(svc, l, j);
  }
  FileList FilterDate(FileList& l, job& j) { return orvKestrel::FilterDate(svc, l, j); }
  void ProcessFiles(FileList& l, job& j) { orvKestrel::ProcessFiles(On(j), svc, l); }
  void DoMoveCopySelection(FileList& l, job& j) {
    orvKestrel::DoMoveCopySelection(On(j), svc, l);
  }
  void CheckSync(job& j) { orvKestrel::CheckSync(On(j), svc); }
  void FileCleanUp(job& j, bool all) { orvKestrel::FileCleanUp(On(j), svc, all); }
  bool ReadSourceFileTime(const std::string& f) {
    return orvKestrel::ReadSourceFileTime(run, svc, f);
  }
  bool ReadDestFileTime(const std::string& f) { return orvKestrel::ReadDestFileTime(run, svc, f); }
  bool WriteFileTime(const std::string& f, job& j) {
    return orvKestrel::WriteFileTime(On(j), svc, f);
  }
  void SetDestAttributes(const std::string& f, job& j) {
    orvKestrel::SetDestAttributes(svc, f, j);
  }
  void SetSourceAttributes(const std::string& f, job& j) {
    orvKestrel::SetSourceAttributes(svc, f, j);
  }
  void SetAttribute(std::uint32_t a, const std::string& f) { orvKestrel::SetAttribute(svc, a, f); }
  void UnsetAttribute(std::uint32_t a, const std::string& f) {
    orvKestrel::UnsetAttribute(svc, a, f);
  }

  // ----- actions -----
  void CopyFiles(FileList& l, job& j) { orvKestrel::CopyFiles(On(j), svc, l); }
  void MoveFiles(FileList& l, job& j) { orvKestrel::MoveFiles(On(j), svc, l); }
  std::string GetValidPathName(job& j, const std::string& f, bool zip) {
    return orvKestrel::GetValidPathName(svc, j, f, zip);
  }
  void DeleteSourceFile(const std::string& f, job& j) {
    orvKestrel::DeleteSourceFile(On(j), svc, f);
  }
  void DeleteZipSourceFile(const std::string& f, job& j) {
    orvKestrel::DeleteZipSourceFile(On(j), svc, f);
  }
  void DeleteFile(const std::string& f, job& j) { orvKestrel::DeleteFile(On(j), svc, f); }
  void DeleteFiles(FileList& l, job& j) { orvKestrel::DeleteFiles(On(j), svc, l); }
  void DeleteSyncFiles(FileList& l, job& j) { orvKestrel::DeleteSyncFiles(On(j), svc, l); }
  void CheckEmptyFolder(const std::string& f, job& j) { orvKestrel::CheckEmptyFolder(svc, f, j); }
  void Preview(FileList& l, job& j, const std::string& mode) {
    orvKestrel::Preview(On(j), svc, l, mode);
  }
  void DeleteFilesPreview(FileList& l, job& j) {
    orvKestrel::DeleteFilesPreview(On(j), svc, l);
  }
  void DeleteSyncFilesPreview(FileList& l, job& j) {
    orvKestrel::DeleteSyncFilesPreview(On(j), svc, l);
  }

  // ----- zip -----
  void Zip_Files(FileList& l, job& j) { orvKestrel::Zip_Files(On(j), svc, l); }
  void UnZip_Files(FileList& l, job& j) { orvKestrel::UnZip_Files(On(j), svc, l); }
  void Zip_Preview(FileList& l, job& j) { orvKestrel::Zip_Preview(On(j), svc, l); }

  // ----- reporting -----
  const std::string& T(int n) const { return svc.T(n); }
  std::int16_t Id(int n) const { return svc.Id(n); }
  void Log(int n, const std::string& text, bool view, bool file, bool same, bool last = false) {
    svc.Log(n, text, view, file, same, last);
  }
  void KestrelCounter(std::int32_t all, std::int32_t curr) { svc.KestrelCounter(all, curr); }

  Faults faults;  // where the tests make file operations fail
  Engine driver;
  Services& svc = driver.svc;
  job unbound;  // the run's job until a call binds another
  JobRun run{unbound};

  // The parts by the names the tests use.
  Host& host = svc.host;
  IKestrelEvents*& events = svc.events;
  FileSystem& fs = svc.fs;
  FailSafe& trap = svc.trap;
  std::unique_ptr<ZipLibrary>& zip = svc.zip;
  std::unique_ptr<RegExpCache>& regex = svc.regex;
  std::atomic<bool>& stop = svc.stop;
  bool& noSizeCheck = svc.noSizeCheck;
  bool& dryRun = svc.dryRun;
  bool& filterRegExp = svc.filterRegExp;
  bool& lastNoRoom = svc.lastNoRoom;
  bool& catalogueLoaded = driver.catalogueLoaded;
  bool& jobEndedWithError = driver.jobEndedWithError;
  std::string& m_sCurrJobFile = driver.m_sCurrJobFile;
  bool& noFiles = run.noFiles;
  bool& jobError = run.jobError;
  FileList& files = run.files;
  std::int16_t& syncPass = run.syncPass;
  std::string& savedFrom = run.savedFrom;
  std::string& savedTo = run.savedTo;
  std::unordered_set<std::string>& previewReported = run.previewReported;
  FileTimes& sourceTimes = run.sourceTimes;

 private:
  JobRun& On(job& j) {
    run.record = &j;
    return run;
  }
};

}  // namespace orvKestrel::testing
