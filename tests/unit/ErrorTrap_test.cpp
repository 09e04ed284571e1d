#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "errortrap/modFailSafeLITE.h"
#include "platform/SysError.h"
#include "support/TestSupport.h"

namespace orvKestrel {
namespace {

using namespace testing;  // the shared helpers
using ::testing::MatchesRegex;

std::string App() { return program_invocation_short_name; }

class ErrorTrapTest : public ::testing::Test {
 protected:
  // Answers the trap's questions from a script (then Abort); records what it was asked.
  void Answer(std::vector<BoxAnswer> answers) {
    answers_ = std::move(answers), asked_.clear();
    host_.messageBox = [this](const MessageBoxRequest& box) {
      asked_.push_back(box);
      return asked_.size() <= answers_.size() ? answers_[asked_.size() - 1] : BoxAnswer::Abort;
    };
  }

  TempDir dir_;
  CurrentDir cwd_{dir_.str()};
  Host host_;
  FailSafe trap_{host_};
  std::vector<BoxAnswer> answers_;
  std::vector<MessageBoxRequest> asked_;
  std::vector<std::string> lines_;
};

// The line reported is the line of the statement handed to Do; the log is appended to, and an
// error passed on from another module (a number above 255) names that module.
TEST_F(ErrorTrapTest, ErrorLogLineAndQuestion) {
  Answer({BoxAnswer::Abort});
  Proc p(trap_, "clsKestrel", "Sub CopyFiles");
  const int line = __LINE__ + 1;
  EXPECT_FALSE(p.Do([&] { ThrowSys(ENOENT, "open", "a"); }));
  const std::string head = "OrvDev FailSafe reports " + App() + " program error #";
  const std::string report = head + "2 (No such file or directory) occurred in module clsKestrel, Sub CopyFiles, " +
                             "line " + std::to_string(line) + ".";
  ASSERT_EQ(asked_.size(), 1u);
  EXPECT_EQ(std::tuple(asked_[0].title, asked_[0].text, asked_[0].buttons),
            std::tuple("Unexpected Error", report, MessageBoxRequest::Buttons::AbortRetryIgnore));
  trap_.Report("modUnZip", "Sub UnZip_Files", 5, "bad call", 10);
  trap_.Report("modUnZip", "Sub UnZip_Files", 440, "Archive!broken", 11);
  EXPECT_EQ(ReadFile(dir_ / "error.log"),
            report + "\n" + head + "5 (bad call) occurred in module modUnZip, Sub UnZip_Files, line 10.\n" + head +
                "440 (Archive!broken) occurred in module modUnZip, Sub UnZip_Files, line 11. This error was "
                "generated remotely by modUnZip, a component of " + App() + ".\n");
  EXPECT_EQ(trap_.ErrorCount(), 3);
}

// Retry runs the statement again until it succeeds, Ignore goes on with the next statement,
// Abort leaves, and so does a trap without a message box.
TEST_F(ErrorTrapTest, AnswersDecideHowTheProcedureGoesOn) {
  Answer({BoxAnswer::Retry, BoxAnswer::Retry});
  Proc p(trap_, "m", "Sub P");
  int runs = 0;
  EXPECT_TRUE(p.Do([&] { if (++runs < 3) throw KestrelError(6, "Overflow"); }));
  EXPECT_EQ(std::pair(runs, asked_.size()), std::pair(3, 2ul));
  Answer({BoxAnswer::Ignore});
  EXPECT_TRUE(p.Do([] { throw KestrelError(13, "Type mismatch"); }));
  Answer({BoxAnswer::Abort});
  EXPECT_FALSE(p.Do([] { throw KestrelError(13, "Type mismatch"); }));
  EXPECT_EQ(trap_.ErrorCount(), 4);
  host_.messageBox = nullptr;
  runs = 0;
  EXPECT_FALSE(p.Do([&] { ++runs, throw std::runtime_error("boom"); }));
  EXPECT_EQ(runs, 1);
  EXPECT_THAT(ReadFile(dir_ / "error.log"), ::testing::HasSubstr("#51 (boom)"));
}

// Parameters are rebuilt at leave: the outer procedure's value changed in between. The depth
// never falls below zero.
TEST_F(ErrorTrapTest, TraceLinesOfNestedProcedures) {
  host_.traceSink = [this](const std::string& line) { lines_.push_back(line); };
  {
    std::string verbose = "False";
    const auto params = [&] { return ParamText({{"sJobDir", "/j/"}, {"bVerbose", Opt(verbose)}}); };
    Proc outer(trap_, "clsKestrel", "Sub ExecuteAllJobs", params);
    Proc inner(trap_, "modDiskFree", "Function GetDiskFree", [] { return std::string("()"); });
    inner.Do([] { throw KestrelError(2, "No such file or directory"); });
    verbose = "True";
  }
  ASSERT_EQ(lines_.size(), 6u);
  // Calls are counted across enter and leave. (The header line: e2e RunTest's trace.)
  const std::string app = App();
  const auto stamp = [&](const char* call) {
    return "\\[" + app + "\\] \\[0000" + call + "\\] \\[00000\\.[0-9]{3}\\] ";
  };
  const std::string outer = "clsKestrel : Sub ExecuteAllJobs : \\(sJobDir=/j/, bVerbose=<Optional>";
  const std::string inner = "\tmodDiskFree : Function GetDiskFree : ";
  EXPECT_THAT(lines_[1], MatchesRegex(stamp("1") + "->" + outer + "False\\)\r\n"));
  EXPECT_THAT(lines_[2], MatchesRegex(stamp("[0-9]") + "->" + inner + "\\(\\)\r\n"));
  EXPECT_THAT(lines_[3], MatchesRegex("\\[" + app + "\\] ERROR 2 \"No such file or directory\" at " + inner.substr(1) +
                                      "[0-9]+\r\n"));
  EXPECT_THAT(lines_[4], MatchesRegex(stamp("[0-9]") + "<-" + inner + "\\(\\)\r\n"));
  EXPECT_THAT(lines_[5], MatchesRegex(stamp("4") + "<-" + outer + "True\\)\r\n"));
  // A leave without an enter pushes the next enter neither left of column 0 nor right.
  for (int i = 0; i < 2; ++i) trap_.Leave("m", "Sub Unmatched", "()");
  trap_.Enter("m", "Sub A", "()");
  ASSERT_EQ(lines_.size(), 9u);
  EXPECT_NE(lines_[7].find("] <-m : Sub Unmatched"), std::string::npos);
  EXPECT_NE(lines_[8].find("] ->m : Sub A"), std::string::npos);
}

}  // namespace
}  // namespace orvKestrel
