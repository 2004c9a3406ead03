#include "base/failure_guard.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "base/poll.h"
#include "base/report.h"
#include "platform/win32_error.h"
#include "test_env.h"

namespace qaaisp {
namespace {

// Points QAAISP_EVENT_LOG at a fresh file for one test.
class EventLogFile {
 public:
  EventLogFile() : path_(dir_.Sub("events.log")) { ::setenv("QAAISP_EVENT_LOG", path_.c_str(), 1); }
  ~EventLogFile() { ::setenv("QAAISP_EVENT_LOG", "", 1); }
  std::string Read() { return testing::ReadFile(path_); }

 private:
  testing::TempDir dir_;
  std::string path_;
};

TEST(FailureGuardTest, ExceptionGivesOneEventLineWithTheGuardTexts) {
  EventLogFile log;
  platform::SetLastErrorCode(32);
  LineTrace trace = 0;
  EXPECT_THROW(Guarded("StoreIndex_Open", "..\\SERVICES\\Library\\LIBStoreIndexCore", 10, trace,
                       [&]() -> int {
                         trace = 412;
                         throw Exception("Array index out of bounds", "Array", 77);
                       }),
               Exception);
  std::string text = log.Read();
  ASSERT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  std::string host = platform::Env::Default()->HostProgramPath();
  EXPECT_EQ(text,
            "4\t1073741825\tQuillarbor\t"
            "StoreIndex_Open handled an exception; session will be dropped.\\n"
            "The exception was: Array index out of bounds\\n"
            "The exception occurred in : Array, line 77\\n"
            "Line Trace = 412\\n\t"
            "Quillarbor Store Provider (" +
                host + ") error: 32\n");
}

TEST(FailureGuardTest, LineTraceAppearsOnlyWhenSet) {
  Exception e("m", "f", 1);
  EXPECT_EQ(ExceptionReportText("F", e, 0).find("Line Trace"), std::string::npos);
  EXPECT_NE(ExceptionReportText("F", e, 9).find("Line Trace = 9\n"), std::string::npos);
  EXPECT_EQ(UnknownFailureReportText("G", "Exports", 55, 0),
            "G raised an exception.\nThe exception occurred in : Exports, line 55\n");
}

TEST(FailureGuardTest, ComErrorTextsAndUnknownFailuresRethrow) {
  EXPECT_EQ(ComErrorReportText("LoadFromDocument", ComError(0x80004005u, "xml", "bad"), 3),
            "LoadFromDocument handled a COM error.\nCode = 0x80004005\n"
            "Code meaning = Unspecified error\nSource = xml\nError Description = bad\n"
            "Line Trace = 3\n");
  EXPECT_EQ(ComErrorText(0x80040201u), "IDispatch error #1");
  EXPECT_EQ(ComErrorText(0x8000ABCDu), "Unknown error 0x8000ABCD");
  EventLogFile log;
  LineTrace trace = 0;
  EXPECT_THROW(Guarded("F", "Exports", 5, trace, []() -> int { throw 3; }), int);
  EXPECT_NE(log.Read().find("F raised an exception."), std::string::npos);
  EXPECT_EQ(Guarded("F", "Exports", 5, trace, [] { return 7; }), 7);
}

TEST(ReportTest, EmptySourceGoesToTheDefaultSourceAndTraceTakesNull) {
  testing::FakeClockEnv env;
  ReportEvent(&env, platform::kEventInformation, "", "hello");
  ASSERT_EQ(env.events().size(), 1u);
  EXPECT_EQ(env.events()[0].source, "Quillarbor");
  EXPECT_EQ(env.events()[0].id, kReportEventId);
  EXPECT_EQ(Trace(8, static_cast<const char*>(nullptr)), 1);
  EXPECT_EQ(ErrorTrace(nullptr), 1);
}

TEST(PollTest, SixtyOneOneSecondPollsRunInstantlyOnTheFakeClock) {
  testing::FakeClockEnv env;
  int calls = 0;
  EXPECT_EQ(Poll(&env, 61, 1000, [&](int) { return ++calls > 100; }), 0);
  EXPECT_EQ(calls, 61);
  EXPECT_EQ(env.sleep_count(), 60);
  EXPECT_EQ(env.slept_ms(), 60000u);
  calls = 0;
  EXPECT_EQ(Poll(&env, 61, 1000, [&](int n) { return n == 3; }), 3);
}

}  // namespace
}  // namespace qaaisp
