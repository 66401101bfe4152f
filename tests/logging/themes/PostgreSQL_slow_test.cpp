// The same as PostgreSQL_system_test.cpp for two minutes, with everything at random. KELTO_SEED is the beginning of chance.
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "tests/logging/DatabaseWriters.h"

using namespace tests;

namespace {

unsigned seed() {
  const char* wish = ::getenv("KELTO_SEED");
  return wish != nullptr ? static_cast<unsigned>(std::strtoul(wish, nullptr, 10)) : std::random_device()();
}

class Chance {
 public:
  explicit Chance(unsigned seed) : _engine(seed) {}
  int below(int end) { return std::uniform_int_distribution(0, end - 1)(_engine); }

 private:
  std::mt19937 _engine;
};

// One thing that happens, while all writers log.
bool happen(DatabaseWriters& writers, Chance& chance) {
  const int kind = chance.below(6);
  if (kind == 0) writers.route.cutAtAnswer();
  if (kind == 1) writers.route.silence();
  writers.begin(1 + chance.below(1500));
  if (kind == 2) writers.route.cut();
  if (kind == 3) writers.server.kill();
  const bool areDone = writers.areDone();
  if (kind == 3) writers.server.start();
  if (kind == 1) writers.route.resume();
  return areDone && (kind != 4 || writers.fork(1 + chance.below(300)));
}

}  // namespace

TEST(PostgreSQLLogging, LosesAndDoublesNothingWhateverHappens) {
  if (!tests::PostgreSQLServer::isInstalled()) GTEST_SKIP() << "there is no PostgreSQL server";
  const unsigned start = seed();
  SCOPED_TRACE("KELTO_SEED=" + std::to_string(start));
  Chance chance(start);
  DatabaseWriters writers;
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  int count = 0;
  for (; std::chrono::steady_clock::now() < end; ++count) ASSERT_TRUE(happen(writers, chance));
  EXPECT_TRUE(writers.end());
  EXPECT_EQ(writers.found(), writers.expected());
  std::printf("%d events: %s\n", count, writers.found().c_str());
}
