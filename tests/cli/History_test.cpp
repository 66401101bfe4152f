#include "cli/History.h"

#include <gtest/gtest.h>

#include "cli/JSON.h"

namespace {

cli::RecordedJob job() {
  return {.time = foundation::Date(),
          .job = "7",
          .user = "alice",
          .command = "replace",
          .paths = {"/new/App.app", "/Applications/App.app"},
          .bundle = "com.acme.app",
          .oldVersion = "1.0",
          .newVersion = "2.0",
          .verdict = "done",
          .cause = ""};
}

const std::string time = foundation::PropertyList::dateText(foundation::Date());

}  // namespace

TEST(HistoryTest, IsALineForEachJob) {
  EXPECT_EQ(cli::lineOf(job()), time + " done replace \"/Applications/App.app\" 1.0 -> 2.0, alice");
  auto refused = job();
  refused.newVersion = "";
  refused.verdict = "refused";
  refused.cause = "no\nspace";
  EXPECT_EQ(cli::lineOf(refused), time + " refused replace \"/Applications/App.app\" 1.0, alice: no\\x0aspace");
}

TEST(HistoryTest, IsAnObjectForEachJobInJSON) {
  EXPECT_EQ(cli::jsonOf(cli::listOf({job()})),
            "[{\"action\": \"replace\", \"application\": \"com.acme.app\", \"job\": \"7\", \"newVersion\": \"2.0\", "
            "\"oldVersion\": \"1.0\", \"paths\": [\"/new/App.app\", \"/Applications/App.app\"], \"time\": \"" +
                time + "\", \"user\": \"alice\", \"verdict\": \"done\"}]");
  EXPECT_EQ(cli::jsonOf(cli::listOf({})), "[]");
}

TEST(HistoryTest, OfABundleHasTheJobsThatNameItsPath) {
  auto other = job();
  other.paths = {"/new/App.app", "/Applications/Other.app"};
  EXPECT_EQ(cli::jobsOf("/Applications/App.app", {job(), other}).size(), 1U);
  EXPECT_EQ(cli::jobsOf("", {job(), other}).size(), 2U);
  EXPECT_TRUE(cli::jobsOf("/Applications", {job(), other}).empty());
}
