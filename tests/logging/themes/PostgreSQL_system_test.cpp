// Processes of two machines log into one table of a real server, which is killed and cut off in the middle.
#include <gtest/gtest.h>

#include "tests/logging/DatabaseWriters.h"

using namespace tests;

TEST(PostgreSQLLogging, LosesAndDoublesNothingWhenTheServerDiesOrTheConnectionIsCut) {
  if (!tests::PostgreSQLServer::isInstalled()) GTEST_SKIP() << "there is no PostgreSQL server";
  DatabaseWriters writers;
  writers.begin(1000);
  ASSERT_TRUE(writers.hasRows(100));
  EXPECT_TRUE(writers.areDone());
  EXPECT_TRUE(writers.fork(50));
  writers.begin(1000);
  writers.server.kill();
  EXPECT_TRUE(writers.areDone());
  EXPECT_TRUE(writers.log(2000)) << "statements wait for a server that is away";
  writers.server.start();
  writers.route.cutAtAnswer();
  ASSERT_TRUE(writers.hasRows(16200));
  writers.route.cutAtAnswer();
  writers.begin(1000);
  writers.route.cut();
  EXPECT_TRUE(writers.areDone());
  writers.route.silence();
  EXPECT_TRUE(writers.log(2000)) << "statements wait for a server that is silent";
  writers.route.resume();
  EXPECT_TRUE(writers.end());
  EXPECT_EQ(writers.found(), writers.expected());
}
