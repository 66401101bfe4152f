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
  // How often a change has looked for an object in the middle of a watched key path.
  [[nodiscard]] int lookUps() const { return _lookUps; }
  void whenDestroyed(std::function<void()> action) { _onDestruction = std::move(action); }

 protected:
  [[nodiscard]] std::shared_ptr<foundation::KeyValueObservable> objectForKey(std::string_view key) const override {
    ++_lookUps;
    return key == "output" ? _output : nullptr;
  }

 private:
  int _volume = 0;
  mutable int _lookUps = 0;
  std::shared_ptr<Player> _output;
  std::function<void()> _onDestruction;
};

class KTKeyValueObservingTest : public testing::Test {
 protected:
  void wait(const char* keyPath = "volume") {
    KTKeyValueObserving::waitForKeyPath_object_completion(keyPath, player, [this] { ++runs; });
  }

  int runs = 0;
  std::shared_ptr<Player> player = std::make_shared<Player>();
};

}  // namespace

TEST_F(KTKeyValueObservingTest, RunsItsCallbackOnceForTwoChanges) {
  wait();
  EXPECT_EQ(runs, 0);
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
  player->setVolume(2);
  EXPECT_EQ(runs, 1);
}

TEST_F(KTKeyValueObservingTest, DoesNotRunForAnotherKey) {
  wait();
  player->setOutput(nullptr);
  EXPECT_EQ(runs, 0);
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
}

TEST_F(KTKeyValueObservingTest, RunsForAChangeOfAnyKeyOfALongerKeyPath) {
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

TEST_F(KTKeyValueObservingTest, KeepsTheObjectAliveUntilItFires) {
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

TEST_F(KTKeyValueObservingTest, ReleasesEverythingAfterFiring) {
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

TEST_F(KTKeyValueObservingTest, HoldsNothingAfterFiringEvenIfItIsStillHeld) {
  const auto waiter = std::make_shared<KTKeyValueObserving>();
  waiter->beginWaitingForKeyPath_object_completion("volume", player, [this] { ++runs; });
  player->setVolume(1);
  EXPECT_EQ(waiter.use_count(), 1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(KTKeyValueObservingTest, DoesNotRunACallbackAgainThatChangesTheValue) {
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, [this] {
    ++runs;
    if (runs < 5) player->setVolume(runs);
  });
  player->setVolume(1);
  EXPECT_EQ(runs, 1);
}

// A change that the callback makes still looks along the waiter's key path, so the waiter has not unregistered yet.
TEST_F(KTKeyValueObservingTest, StaysRegisteredUntilItsCallbackReturns) {
  int before = 0;
  int after = 0;
  KTKeyValueObserving::waitForKeyPath_object_completion("output.volume", player, [&] {
    before = player->lookUps();
    player->setOutput(nullptr);
    after = player->lookUps();
  });
  player->setOutput(std::make_shared<Player>());
  EXPECT_EQ(after, before + 1);
  player->setOutput(nullptr);
  EXPECT_EQ(player->lookUps(), after) << "after the callback it is unregistered";
}

TEST_F(KTKeyValueObservingTest, WithoutACallbackItOnlyCleansUp) {
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, nullptr);
  EXPECT_EQ(player.use_count(), 2);
  player->setVolume(1);
  EXPECT_EQ(player.use_count(), 1);
}

TEST_F(KTKeyValueObservingTest, RunsItsCallbackOnTheThreadThatMadeTheChange) {
  std::optional<std::thread::id> ranOn;
  KTKeyValueObserving::waitForKeyPath_object_completion("volume", player, [&] { ranOn = std::this_thread::get_id(); });
  std::thread changer([this] { player->setVolume(1); });
  const auto expected = changer.get_id();
  changer.join();
  EXPECT_EQ(ranOn, expected);
}

// The waiter is fired by hand: it would hold itself and its completion beyond the end of the test.
TEST_F(KTKeyValueObservingTest, WithoutAnObjectItWaitsUntilItIsNotified) {
  const auto waiter = std::make_shared<KTKeyValueObserving>();
  waiter->beginWaitingForKeyPath_object_completion("volume", nullptr, [this] { ++runs; });
  EXPECT_EQ(runs, 0);
  waiter->observeValueForKeyPath_ofObject_change_context("volume", *player, {}, nullptr);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(waiter.use_count(), 1);
}
