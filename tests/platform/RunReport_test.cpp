#include "platform/RunReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakeSession.h"

using platform::Ending;
using platform::Failure;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct RunReportTest : testing::Test {
  platform::fake::FakeSystemLog log;
  platform::RunReport report{log};
};

}  // namespace

TEST_F(RunReportTest, WithoutAFailureTheRunIsDoneAndNothingIsLogged) {
  report.expect({Ending::refused, "wait", "/a", "nothing came"});
  report.expectNothing();
  report.failAsExpected();
  EXPECT_EQ(report.ending(), Ending::done);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(RunReportTest, AFailureIsOneLineWithStepPathAndCause) {
  report.fail({Ending::failed, "replace", "/Apps/A.app", "the disk is full"});
  EXPECT_EQ(report.ending(), Ending::failed);
  EXPECT_THAT(log.lines, ElementsAre("Failed (status 1): step \"replace\", path \"/Apps/A.app\", cause: the disk is full"));
}

TEST_F(RunReportTest, TheFirstFailureDecides) {
  report.fail({Ending::stillRunning, "quit", "", "a copy runs"});
  report.fail({Ending::failed, "start", "", "no program"});
  EXPECT_EQ(report.ending(), Ending::stillRunning);
}

TEST_F(RunReportTest, AnExpectedFailureHappensOnce) {
  report.expect({Ending::refused, "wait", "", "nothing came"});
  report.failAsExpected();
  report.failAsExpected();
  EXPECT_EQ(report.ending(), Ending::refused);
  EXPECT_THAT(log.lines, ElementsAre("Refused (status 4): step \"wait\", cause: nothing came"));
}

TEST_F(RunReportTest, AReportedFailureTakesThePlaceOfTheExpectedOne) {
  report.expect({Ending::refused, "wait", "", "nothing came"});
  report.fail({Ending::failed, "replace", "", "the disk is full"});
  report.failAsExpected();
  EXPECT_EQ(log.lines.size(), 1U);
}

TEST_F(RunReportTest, CancellingNamesTheStepThatWasWaitedFor) {
  report.expect({Ending::stillRunning, "quit", "/A.app", "a copy runs"});
  report.cancel("SIGTERM");
  EXPECT_EQ(report.ending(), Ending::cancelled);
  EXPECT_THAT(log.lines, ElementsAre("Cancelled (status 6): step \"quit\", path \"/A.app\", cause: SIGTERM"));
}

TEST_F(RunReportTest, NothingThatHappensAfterTheRunHasSucceededChangesTheEnding) {
  report.succeed();
  report.cancel("SIGTERM");
  EXPECT_EQ(report.ending(), Ending::done);
  EXPECT_THAT(log.lines, IsEmpty());
}
