// Fault injection: every call of every platform operation of a copy, a move, a synchronisation,
// a compression and an extraction is made to fail in turn, and after each run the trees must
// hold no partial file, lose no file, and a run whose result differs from a clean run must say so.
#include "FaultsSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <tuple>

namespace orvKestrel::testing {
namespace {

// Deterministic bytes that do not compress to nothing.
std::string Bytes(std::size_t n, unsigned seed) {
  std::string out(n, '\0');
  std::minstd_rand next(seed);
  for (char& c : out) c = static_cast<char>('A' + next() % 61);
  return out;
}

const std::map<std::string, std::string> kSourceTree = {
    {"src/a.txt", "alpha\n"},
    {"src/big.bin", Bytes(1536 * 1024, 7)},  // two copy steps: a fault can hit the second one
    {"src/sub/c.txt", "gamma\n"},
    {"src/sub/deep/d.txt", "delta\n"},
};

std::map<std::string, std::string> With(std::map<std::string, std::string> more) {
  more.insert(kSourceTree.begin(), kSourceTree.end());  // keys of more win
  return more;
}

const Scenario kScenarios[] = {
    {"copy",
     "Action=0\nSubFolder=1\nFStruct=1\nExist=3\nAttrSetDest=1\nAttrArchive1=1\n",
     With({{"dst/a.txt", "old alpha\n"}}), {}},
    {"move", "Action=1\nSubFolder=1\nFStruct=1\nDelEFolSource=1\n", kSourceTree, {}},
    {"sync",
     "Action=5\nExist=4\nEFSelect=0\nExtFileTime=1\nSyncDelete=1\nSubFolder=1\nFStruct=1\n",
     // d.txt has been synchronised before: both sides hold it.
     With({{"dst/a.txt", "older alpha\n"}, {"dst/gone.txt", "only here\n"},
                        {"dst/sub/e.txt", "epsilon\n"}, {"dst/sub/deep/d.txt", "delta\n"}}),
     {{"src/a.txt", 2000000000}, {"dst/a.txt", 1900000000}}},
    // The first file of an archive for the whole job that cannot be added is not reported
    // (only the further files are); it stays where it is.
    {"compress", "Action=3\nSubFolder=1\nZipAll=0\nZipIntStruct=1\nZipDelComp=1\nExist=3\n",
     kSourceTree, {}, {}, {FaultOp::Open}},
    // An archive per file, one of them added to under the newer-only policy: each source
    // goes only once its own archive is written, and only as it was read. A file that cannot
    // be opened gives a zero result, which this layout reports as "Ersetzt"; it stays.
    {"compress_single",
     "Action=3\nSubFolder=1\nZipAll=1\nZipExtStruct=1\nZipDelComp=1\nExist=4\nEFSelect=0\n"
     "ExtFileTime=1\n",
     kSourceTree, {{"src/a.txt", 1800000000}},
     {{"dst/a.txt.zip", {{"a.txt", "old alpha\n"}, {"keep.txt", "kept\n"}}}},
     {FaultOp::Open}},
    {"extract",
     "Action=4\nDestZipFolder=1\nDestZipFilter=*.*\nDestZipExist=3\nZipDelDeComp=1\n",
     {{"dst/a.txt", "old alpha\n"}}, {},
     {{"src/pack.zip", {{"a.txt", "alpha\n"}, {"sub/b.txt", Bytes(300 * 1024, 3)}}},
      {"src/more.zip", {{"c.txt", "gamma\n"}}}}},
};

const std::tuple<FaultOp, const char*, std::vector<int>> kKinds[] = {
    {FaultOp::Open, "open", {ENOENT, EACCES}}, {FaultOp::Read, "read", {EIO}},
    {FaultOp::Write, "write", {ENOSPC, EIO}},  {FaultOp::Rename, "rename", {EXDEV, EACCES}},
    {FaultOp::Unlink, "unlink", {EACCES, EIO}}, {FaultOp::Copy, "copy", {EIO}},
    {FaultOp::Statvfs, "statvfs", {EIO}},       {FaultOp::SetTimes, "set times", {EPERM}},
    {FaultOp::SetAttributes, "set attributes", {ENOTSUP}}, {FaultOp::Trash, "trash", {EIO}},
    {FaultOp::List, "list", {EACCES, EIO}},
};

// With workers, which call is the n-th differs from run to run (a worker may make it): n runs
// over the calls of the clean run as with one, and the invariants must hold for each.
class FaultInjection : public ::testing::TestWithParam<std::tuple<Scenario, int>> {};

TEST_P(FaultInjection, EveryFaultLeavesCompleteFilesAndIsReported) {
  const auto& [s, jobs] = GetParam();
  FaultRun clean(s);
  const RunResult base = clean.Run(FaultOp::Count, 0, 0, jobs);
  ASSERT_TRUE(base.ok()) << s.name << " clean run:\n" << base.Describe();
  ASSERT_TRUE(base.after != base.before) << s.name << ": the clean run must change the trees";
  if (jobs > 1) {
    FaultRun alone(s);
    ASSERT_EQ(base.after, alone.Run(FaultOp::Count, 0, 0).after) << s.name << ": workers change the result";
  }
  int injected = 0;
  std::string problems;
  for (const auto& [op, opName, errors] : kKinds) {
    for (int n = 1; n <= base.calls[static_cast<std::size_t>(op)]; ++n) {
      for (const int err : errors) {
        FaultRun run(s);
        const RunResult r = run.Run(op, n, err, jobs);
        injected += r.fired ? 1 : 0;
        for (const std::string& p : r.fired ? CheckInvariants(s, base, r) : std::vector<std::string>{}) {
          problems += std::string(opName) + " call " + std::to_string(n) + " " + std::strerror(err) + ": " + p +
                      "\n" + r.Describe();
        }
      }
    }
  }
  RecordProperty("injected", injected);
  std::printf("[ faults   ] %s, %d jobs: %d faults injected\n", s.name, jobs, injected);
  EXPECT_GT(injected, 20);
  EXPECT_EQ(problems, "");
}

INSTANTIATE_TEST_SUITE_P(Jobs, FaultInjection,
                         ::testing::Combine(::testing::ValuesIn(kScenarios), ::testing::Values(1, 4)),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param).name) + "_jobs" +
                                  std::to_string(std::get<1>(info.param));
                         });

}  // namespace
}  // namespace orvKestrel::testing
