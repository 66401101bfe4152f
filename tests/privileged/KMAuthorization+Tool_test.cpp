#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/text/UTF8.h"
#include "logging/KTLogger.h"
#include "privileged/KMAuthorization.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/FakeTool.h"

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

namespace {

class KMAuthorizationToolTest : public testing::Test {
 protected:
  [[nodiscard]] std::size_t jobFiles() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(fake.files.items, [](const auto& item) { return item.first.starts_with("/tmp/Kelto"); }));
  }

  bool run(std::optional<std::string>* output = nullptr) {
    return session->resultFromToolWithPrompt_instructions_output("", instructions, output);
  }

  // The run alone, with the right held.
  std::optional<std::string> runTool() {
    session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false);
    return session->_outputFromToolWithInstructions(instructions);
  }

  platform::fake::FakePlatform fake;
  tests::FakeTool tool{fake};
  std::shared_ptr<KMAuthorization> session = KMAuthorization::init(fake.platform);
  const KMAuthorization::Instructions instructions{{protocol::commandKey, protocol::removeFileCommand},
                                                   {protocol::filePathKey, "/A.app"}};
};

class RecordingLogger final : public KTAdditionalLoggerProtocol {
 public:
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const foundation::FormatArgument> arguments) override {
    selectors.emplace_back(selector);
    levels.push_back(level);
    messages.push_back(foundation::format(format, arguments));
  }
  std::vector<std::string> selectors;
  std::vector<std::int32_t> levels;
  std::vector<std::string> messages;
};

}  // namespace

TEST_F(KMAuthorizationToolTest, AJobThatTheToolReportsAsDoneSucceeds) {
  EXPECT_TRUE(run());
  ASSERT_EQ(tool.jobs.size(), 1U);
  EXPECT_THAT(tool.jobs[0], Contains(Pair(protocol::commandKey, protocol::removeFileCommand)));
  EXPECT_THAT(tool.jobs[0], Contains(Pair(protocol::filePathKey, "/A.app")));
  EXPECT_THAT(tool.jobs[0].at(protocol::resultPathKey), StartsWith("/tmp/Kelto"));
  EXPECT_FALSE(tool.jobs[0].contains(protocol::outputPathKey));
}

TEST_F(KMAuthorizationToolTest, TheCallersInstructionsAreNotChanged) {
  run();
  EXPECT_THAT(instructions,
              ElementsAre(Pair(protocol::commandKey, protocol::removeFileCommand), Pair(protocol::filePathKey, "/A.app")));
}

TEST_F(KMAuthorizationToolTest, TheLengthIsEightBytesLittleEndianBeforeTheArchive) {
  run();
  const std::string& written = tool.lastStream->written;
  ASSERT_GT(written.size(), 8U);
  std::uint64_t length = 0;
  for (int i = 7; i >= 0; --i) length = length * 256 + static_cast<unsigned char>(written[static_cast<std::size_t>(i)]);
  EXPECT_EQ(length, written.size() - 8);
}

TEST_F(KMAuthorizationToolTest, TheToolIsAuthorizedAndRunWithoutOptions) {
  run();
  EXPECT_THAT(fake.authorization.calls,
              ElementsAre("create 0", platform::fake::copiedRights(1, 19), "execute 1 " + tool.path + " 0"));
}

TEST_F(KMAuthorizationToolTest, BothFilesAreCreatedEmptyWithMode0666BeforeTheToolRuns) {
  std::map<std::string, platform::fake::FakeFileManager::Item> seen;
  tool.work = [&](const tests::FakeTool::Job& job) {
    for (const char* key : {protocol::resultPathKey, protocol::outputPathKey}) seen[key] = fake.files.items.at(job.at(key));
  };
  std::optional<std::string> output;
  run(&output);
  ASSERT_EQ(seen.size(), 2U);
  for (const auto& [key, item] : seen) {
    EXPECT_EQ(item.attributes.posixPermissions, 438) << key;
    EXPECT_EQ(item.contents, "") << key;
  }
}

TEST_F(KMAuthorizationToolTest, TheFilesExistBeforeTheRightIsAskedFor) {
  std::optional<std::string> output;
  fake.journal.clear();
  run(&output);
  const auto& calls = fake.journal.calls();
  const auto asked = fake.journal.place("authorization.copyRights");
  ASSERT_LT(asked, calls.size());
  EXPECT_EQ(std::count_if(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(asked),
                          [](const auto& call) { return call.starts_with("fileManager.createFileAtPath /tmp/Kelto"); }),
            2);
  EXPECT_EQ(std::ranges::count_if(calls, [](const auto& call) { return call.starts_with("fileManager.createFileAtPath"); }),
            2);
}

TEST_F(KMAuthorizationToolTest, TheFilesAreReadAndRemovedOnlyAfterTheToolRan) {
  std::optional<std::string> output;
  run(&output);
  EXPECT_LT(fake.journal.place("authorization.execute"), fake.journal.place("fileManager.contentsAtPath"));
  EXPECT_LT(fake.journal.place("fileManager.contentsAtPath"), fake.journal.place("fileManager.removeItemAtPath"));
  EXPECT_EQ(fake.files.removed.size(), 2U);
}

TEST_F(KMAuthorizationToolTest, AResultFileThatCannotBeReadIsAFailure) {
  fake.files.refusesToRead = true;
  EXPECT_FALSE(run());
}

TEST_F(KMAuthorizationToolTest, AResultFileThatCannotBeRemovedChangesNothing) {
  fake.files.refusesToRemove = true;
  EXPECT_TRUE(run());
}

TEST_F(KMAuthorizationToolTest, AResultFileThatCannotBeMadeFailsTheJobAfterTheToolRan) {
  fake.files.refusesToCreateFiles = true;
  EXPECT_FALSE(run());
  EXPECT_EQ(tool.jobs.size(), 1U);
}

TEST_F(KMAuthorizationToolTest, NoFileIsCreatedForAMissingOrEmptyPath) {
  const auto before = fake.files.items.size();
  session->_createOutputFileAtPath(std::nullopt);
  session->_createOutputFileAtPath("");
  EXPECT_EQ(fake.files.items.size(), before);
}

TEST_F(KMAuthorizationToolTest, AnExistingFileIsReplacedByAnEmptyOne) {
  fake.files.addFile("/tmp/result", "old text");
  session->_createOutputFileAtPath("/tmp/result");
  EXPECT_EQ(fake.files.items.at("/tmp/result").contents, "");
}

TEST_F(KMAuthorizationToolTest, ResultTextMustMatchExactly) {
  const std::string ok = protocol::successVerdict;
  for (const std::string& text :
       {ok + "\n", "T" + ok.substr(1), ok + " ", std::string(), ok.substr(0, ok.size() - 3), std::string("failed")}) {
    tool.results[protocol::removeFileCommand] = text;
    EXPECT_FALSE(run()) << text;
  }
}

TEST_F(KMAuthorizationToolTest, AVanishedResultFileIsAFailure) {
  tool.work = [&](const tests::FakeTool::Job& job) { fake.files.items.erase(job.at(protocol::resultPathKey)); };
  EXPECT_FALSE(run());
}

TEST_F(KMAuthorizationToolTest, WithoutAToolEveryJobFailsAndLeavesNoFileBehind) {
  fake.bundles.main.resources.clear();
  EXPECT_FALSE(run());
  EXPECT_EQ(jobFiles(), 0U);
  EXPECT_THAT(fake.authorization.calls, Not(Contains(StartsWith("execute"))));
}

TEST_F(KMAuthorizationToolTest, AToolThatIsNotExecutableIsNotFound) {
  fake.files.addFile(tool.path, {}, false);
  EXPECT_EQ(session->_pathForTool(), std::nullopt);
  EXPECT_FALSE(run());
}

TEST_F(KMAuthorizationToolTest, FilesAreRemovedAlsoWhenTheToolNeverRan) {
  fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
  std::optional<std::string> output;
  EXPECT_FALSE(run(&output));
  EXPECT_EQ(jobFiles(), 0U);
  EXPECT_EQ(fake.files.removed.size(), 2U);
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(KMAuthorizationToolTest, AFailedStartFailsTheJob) {
  fake.authorization.executeStatus = platform::errAuthorizationToolExecuteFailure;
  EXPECT_FALSE(run());
  EXPECT_EQ(jobFiles(), 0U);
}

TEST_F(KMAuthorizationToolTest, AShortWriteOfTheLengthClosesThePipe) {
  tool.writeLimit = 7;
  EXPECT_FALSE(run());
  EXPECT_TRUE(tool.lastStream->isClosed);
  EXPECT_EQ(tool.lastStream->written.size(), 7U);
  EXPECT_THAT(tool.lastStream->reads, IsEmpty());
}

TEST_F(KMAuthorizationToolTest, AShortWriteOfTheArchiveClosesThePipe) {
  tool.writeLimit = 20;
  EXPECT_FALSE(run());
  EXPECT_TRUE(tool.lastStream->isClosed);
  EXPECT_THAT(tool.lastStream->reads, IsEmpty());
}

TEST_F(KMAuthorizationToolTest, AnOutputFileThatTheToolLeftEmptyGivesAnEmptyString) {
  std::optional<std::string> output;
  EXPECT_TRUE(run(&output));
  EXPECT_EQ(output, "");
}

TEST_F(KMAuthorizationToolTest, AVanishedOutputFileGivesNothing) {
  tool.work = [&](const tests::FakeTool::Job& job) { fake.files.items.erase(job.at(protocol::outputPathKey)); };
  std::optional<std::string> output = "before";
  EXPECT_TRUE(run(&output));
  EXPECT_EQ(output, std::nullopt);
}

TEST_F(KMAuthorizationToolTest, OutputIsHandedBackAsText) {
  tool.output = "Trash: \xC3\xA9";
  std::optional<std::string> output;
  EXPECT_TRUE(run(&output));
  EXPECT_EQ(output, "Trash: \xC3\xA9");
}

TEST_F(KMAuthorizationToolTest, OutputThatIsNotUTF8GivesNothing) {
  tool.output = "\xFF\xFE";
  std::optional<std::string> output = "before";
  run(&output);
  EXPECT_EQ(output, std::nullopt);
}

TEST_F(KMAuthorizationToolTest, A512ByteAnswerIsReadUntilTheEnd) {
  tool.answer = {std::string(512, 'a')};
  run();
  EXPECT_THAT(tool.lastStream->reads, ElementsAre(512U, 0U));
}

TEST_F(KMAuthorizationToolTest, TheAnswerIsReadAsASCIIText) {
  tool.answer = {"caf\xC3\xA9 \xFF ok"};
  const auto text = runTool();
  ASSERT_TRUE(text);
  EXPECT_TRUE(foundation::isValidUTF8(*text));
  EXPECT_EQ(*text, foundation::textFromASCII("caf\xC3\xA9 \xFF ok"));
  EXPECT_NE(*text, "caf\xC3\xA9 \xFF ok");
}

TEST_F(KMAuthorizationToolTest, A700ByteAnswerIsReadAs512And188) {
  tool.answer = {std::string(700, 'a')};
  EXPECT_EQ(runTool()->size(), 700U);
  EXPECT_THAT(tool.lastStream->reads, ElementsAre(512U, 188U));
}

TEST_F(KMAuthorizationToolTest, AShortReadEndsTheReading) {
  tool.answer = {std::string(100, 'a'), std::string(50, 'b')};
  EXPECT_EQ(runTool(), std::string(100, 'a'));
  EXPECT_THAT(tool.lastStream->reads, ElementsAre(100U));
}

TEST_F(KMAuthorizationToolTest, TheAnswerIsLoggedToBothLoggersAtDebugLevel) {
  fake.enableDebugLogging();
  RecordingLogger additional;
  KTLogger::sharedLogger()->setAdditionalLogger(&additional);
  tool.answer = {"all done"};
  run();
  ASSERT_THAT(fake.systemLog.lines,
              ElementsAre(AllOf(StartsWith("<Debug> [KMAuthorization(0x"), EndsWith("]:102 output is 'all done'"))));
  EXPECT_THAT(fake.systemLog.lines[0], HasSubstr(") _outputFromToolWithInstructions:]"));
  ASSERT_THAT(additional.messages, ElementsAre(fake.systemLog.lines[0].substr(8)));
  EXPECT_THAT(additional.levels, ElementsAre(7));
  KTLogger::sharedLogger()->setAdditionalLogger(nullptr);
}

TEST_F(KMAuthorizationToolTest, NothingIsLoggedAtTheDefaultLevel) {
  run();
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(KMAuthorizationToolTest, ReleasedRightsFailTheJobWithoutRunningTheTool) {
  session->releaseRights();
  EXPECT_FALSE(run());
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(KMAuthorizationToolTest, TheToolsReasonIsTheCauseInTheReport) {
  tool.results[protocol::removeFileCommand] = "";
  tool.answer = {"the disk is full\n"};
  EXPECT_FALSE(run());
  EXPECT_THAT(fake.systemLog.lines, ElementsAre(std::string("Failed (status 1): step \"") + protocol::removeFileCommand +
                                                "\", path \"/A.app\", cause: the disk is full"));
}

TEST_F(KMAuthorizationToolTest, AMissingVerdictIsTheCauseInTheReportWhenTheToolSaysItIsDone) {
  tool.results[protocol::removeFileCommand] = "";
  const auto line = std::string(protocol::doneMark) + "removed /A.app";
  tool.answer = {line + "\n"};
  EXPECT_FALSE(run());
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre(EndsWith("cause: the tool left no verdict, although it says \"" + line + "\"")));
}

TEST_F(KMAuthorizationToolTest, AToolThatIsGivenUpIsTheCauseInTheReport) {
  tool.results[protocol::removeFileCommand] = "";
  tool.answer.clear();
  fake.authorization.failureCause = "the tool was silent";
  EXPECT_FALSE(run());
  EXPECT_THAT(fake.systemLog.lines, ElementsAre(EndsWith("cause: the tool was silent")));
}

TEST_F(KMAuthorizationToolTest, TheTimesOfTheResultFileAreTheSignsOfLife) {
  run();
  ASSERT_EQ(tool.jobs.size(), 1U);
  EXPECT_EQ(tool.lastStream->signs, tool.jobs[0].at(protocol::resultPathKey));
}

TEST_F(KMAuthorizationToolTest, EveryFailedJobIsReportedInOneLineWithItsCause) {
  struct Case {
    std::function<void()> mistake;
    const char* cause;
    platform::Ending ending;
  };
  const std::vector<Case> cases{
      {[&] { tool.results[protocol::removeFileCommand] = "", tool.answer.clear(); }, "the tool ended without a word",
       platform::Ending::failed},
      {[&] { tool.writeLimit = 20; }, "the tool did not take the instruction", platform::Ending::failed},
      {[&] {
         fake.authorization.executeStatus = platform::errAuthorizationToolExecuteFailure;
         fake.authorization.failureCause = "no such file";
       },
       "the tool could not be started: no such file", platform::Ending::failed},
      {[&] {
         fake.authorization.failureCause.clear(), fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
       },
       "the right is denied (-60005)", platform::Ending::refused},
      {[&] { fake.authorization.copyRightsStatus = 0, fake.bundles.main.resources.clear(); },
       "the bundle has no executable tool assistantTool", platform::Ending::failed},
      {[&] { session->releaseRights(); }, "there is no session, or it has been released (-60002)",
       platform::Ending::refused},
  };
  for (const auto& one : cases) {
    one.mistake();
    fake.systemLog.lines.clear();
    EXPECT_FALSE(run());
    ASSERT_EQ(fake.systemLog.lines.size(), 1U) << one.cause;
    EXPECT_THAT(fake.systemLog.lines[0], EndsWith(std::string("cause: ") + one.cause));
    EXPECT_THAT(fake.systemLog.lines[0], HasSubstr("status " + std::to_string(static_cast<int>(one.ending))));
  }
}

TEST_F(KMAuthorizationToolTest, LengthAndArchiveAreOneWrite) {
  run();
  EXPECT_EQ(tool.lastStream->writes, 1U);
}
