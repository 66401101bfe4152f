#include "kit/KTKeyValueObserving.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>

namespace {

class Player : public foundation::KeyValueObservable {
 public:
  ~Player() override {
    if (_onDestruction) _onDestruction();
  }
  void setVolume(int volume) {
    _volume = volume;
    didChangeValueForKey("volume");
  }
  void setOutput(std::shared_ptr<Player> output) {
    _output = std::move(output);
    didChangeValueForKey("output");
  }
  void whenDestroyed(std::function<void()> action) { _onDestruction = std::move(action); }

 protected:
  [[nodiscard]] std::shared_ptr<foundation::KeyValueObservable> objectForKey(std::string_view key) const override {
    return key == "output" ? _output : nullptr;
  }

 private:
  int _volume = 0;
  std::shared_ptr<Player> _output;
  std::function<void()> _onDestruction;
};

class Waiter : public testing::Test {
 protected:
  void wait(const char* keyPath = "volume") {
    KTKeyValueObserving::waitForKeyPath_object_completion(keyPath, player, [this] { ++runs; });
  }

  int runs = 0;
  std::shared_ptr<Player> player = std::make_shared<Player>();
};

}  // namespace

TEST_F(Waiter, RunsItsCallbackOnceForTwoChanges) {
  wait();
  EXPECT_EQ(runs, 0);
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
  player->setVolume(2);
  EXPECT_EQ(runs, 1);
}

TEST_F(Waiter, DoesNotRunForAnotherKey) {
  wait();
  player->setOutput(nullptr);
  EXPECT_EQ(runs, 0);
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
}

TEST_F(Waiter, RunsForEveryPartOfALongerKeyPath) {
  const auto inner = std::make_shared<Player>();
  player->setOutput(inner);
  wait("output.volume");
  wait("output.volume");
  inner->setVolume(1);
  EXPECT_EQ(runs, 2);
  wait("output.volume");
  player->setOutput(nullptr);
  EXPECT_EQ(runs, 3);
  inner->setVolume(2);
  EXPECT_EQ(runs, 3);
}

TEST_F(Waiter, KeepsTheObjectAliveUntilItFires) {
  bool isDestroyed = false;
  player->whenDestroyed([&] { isDestroyed = true; });
  wait();
  Player* raw = player.get();
  player.reset();
  EXPECT_FALSE(isDestroyed);
  raw->setVolume(1);
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(isDestroyed);
}

TEST_F(Waiter, LetsGoOfEverythingOnceFired) {
  auto token = std::make_shared<int>(0);
  std::weak_ptr<KTKeyValueObserving> waiter;
  {
    auto made = std::make_shared<KTKeyValueObserving>();
    waiter = made;
    made->beginWaitingForKeyPath_object_completion("volume", player, [token] { ++*token; });
  }
  EXPECT_FALSE(waiter.expired());
  EXPECT_EQ(token.use_count(), 2);
  EXPECT_EQ(player.use_count(), 2);
  player->setVolume(1);
  EXPECT_TRUE(waiter.expired());
  EXPECT_EQ(*token, 1);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(Waiter, HeldByAnotherStaysButHoldsNothing) {
  const auto waiter = std::make_shared<KTKeyValueObserving>();
  waiter->beginWaitingForKeyPath_object_completion("volume", player, [this] { ++runs; });
  player->setVolume(1);
  EXPECT_EQ(waiter.use_count(), 1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(Waiter, ACallbackThatChangesTheValueAgainIsNotRunAgain) {
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, [this] {
    ++runs;
    if (runs < 5) player->setVolume(runs);
  });
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
}

TEST_F(Waiter, WithoutACallbackItOnlyCleansUp) {
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, nullptr);
  EXPECT_EQ(player.use_count(), 2);
  player->setVolume(1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(Waiter, TheCallbackRunsOnTheThreadThatMadeTheChange) {
  std::optional<std::thread::id> ranOn;
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, [&] { ranOn = std::this_thread::get_id(); });
  std::thread changer([this] { player->setVolume(1); });
  const auto expected = changer.get_id();
  changer.join();
  EXPECT_EQ(ranOn, expected);
}

// The completion lives as long as the waiter, which is told here so that it ends with the test.
TEST_F(Waiter, WithoutAnObjectWaitsUntilItIsTold) {
  const auto waiter = std::make_shared<KTKeyValueObserving>();
  waiter->beginWaitingForKeyPath_object_completion("volume", nullptr, [this] { ++runs; });
  EXPECT_EQ(runs, 0);
  waiter->observeValueForKeyPath_ofObject_change_context("volume", *player, {}, nullptr);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(waiter.use_count(), 1);
}
