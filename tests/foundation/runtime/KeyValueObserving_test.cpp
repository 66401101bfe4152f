#include "foundation/runtime/KeyValueObserving.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

using namespace foundation;

namespace {

class Node : public KeyValueObservable {
 public:
  void setNext(std::shared_ptr<Node> next) {
    _next = std::move(next);
    didChangeValueForKey("next");
  }

 protected:
  [[nodiscard]] std::shared_ptr<KeyValueObservable> objectForKey(std::string_view key) const override {
    return key == "next" ? _next : nullptr;
  }

 private:
  std::shared_ptr<Node> _next;
};

struct Recorder : KeyValueObserver {
  void observeValueForKeyPath_ofObject_change_context(std::string_view keyPath, KeyValueObservable& object,
                                                      const KeyValueChange& change, void* context) override {
    told.emplace_back(keyPath);
    lastObject = &object;
    lastKind = change.kind;
    lastContext = context;
    if (then) then();
  }

  std::vector<std::string> told;
  KeyValueObservable* lastObject = nullptr;
  std::uint64_t lastKind = 0;
  void* lastContext = nullptr;
  std::function<void()> then;
};

class Observation : public testing::Test {
 protected:
  std::shared_ptr<Node> node = std::make_shared<Node>();
  Recorder recorder;
};

}  // namespace

TEST_F(Observation, TellsPathObjectKindAndContext) {
  int context = 0;
  node->addObserver_forKeyPath_context(recorder, "name", &context);
  EXPECT_TRUE(recorder.told.empty());
  node->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told, std::vector<std::string>{"name"});
  EXPECT_EQ(recorder.lastObject, node.get());
  EXPECT_EQ(recorder.lastKind, 1U);
  EXPECT_EQ(recorder.lastContext, &context);
}

TEST_F(Observation, OtherKeysAreNotTold) {
  node->addObserver_forKeyPath_context(recorder, "name");
  node->didChangeValueForKey("nam");
  node->didChangeValueForKey("names");
  EXPECT_TRUE(recorder.told.empty());
}

TEST_F(Observation, EndsWithTheRegistration) {
  node->addObserver_forKeyPath_context(recorder, "name");
  node->removeObserver_forKeyPath(recorder, "other");
  node->didChangeValueForKey("name");
  node->removeObserver_forKeyPath(recorder, "name");
  node->removeObserver_forKeyPath(recorder, "name");
  node->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 1U);
}

TEST_F(Observation, RegisteredTwiceIsToldTwiceAndTakenBackOneByOne) {
  node->addObserver_forKeyPath_context(recorder, "name");
  node->addObserver_forKeyPath_context(recorder, "name");
  node->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 2U);
  node->removeObserver_forKeyPath(recorder, "name");
  node->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 3U);
}

TEST_F(Observation, AnObserverRemovedByAnEarlierOneIsNotTold) {
  Recorder first;
  first.then = [&] { node->removeObserver_forKeyPath(recorder, "name"); };
  node->addObserver_forKeyPath_context(first, "name");
  node->addObserver_forKeyPath_context(recorder, "name");
  node->didChangeValueForKey("name");
  EXPECT_EQ(first.told.size(), 1U);
  EXPECT_TRUE(recorder.told.empty());
}

TEST_F(Observation, APathFollowsTheObjectsInItsMiddle) {
  const auto before = std::make_shared<Node>();
  const auto after = std::make_shared<Node>();
  node->setNext(before);
  node->addObserver_forKeyPath_context(recorder, "next.name");
  before->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told, std::vector<std::string>{"next.name"});
  EXPECT_EQ(recorder.lastObject, node.get());
  node->setNext(after);
  EXPECT_EQ(recorder.told.size(), 2U);
  before->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 2U);
  after->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 3U);
}

TEST_F(Observation, APathMayHaveManyKeysAndGaps) {
  const auto second = std::make_shared<Node>();
  const auto third = std::make_shared<Node>();
  node->addObserver_forKeyPath_context(recorder, "next.next.name");
  node->setNext(second);
  second->setNext(third);
  third->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told, (std::vector<std::string>{"next.next.name", "next.next.name", "next.next.name"}));
  node->removeObserver_forKeyPath(recorder, "next.next.name");
  third->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 3U);
  EXPECT_EQ(third.use_count(), 2);
}

TEST_F(Observation, TakenBackFromWithinAnInnerChangeIsSafe) {
  const auto inner = std::make_shared<Node>();
  node->setNext(inner);
  node->addObserver_forKeyPath_context(recorder, "next.name");
  recorder.then = [this] { node->removeObserver_forKeyPath(recorder, "next.name"); };
  inner->didChangeValueForKey("name");
  inner->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 1U);
}

TEST_F(Observation, AnObjectThatIsLetGoWhileItTellsLivesUntilItHasTold) {
  std::weak_ptr<Node> weak = node;
  recorder.then = [this] { node.reset(); };
  Recorder second;
  bool wasAlive = false;
  second.then = [&] { wasAlive = !weak.expired(); };
  node->addObserver_forKeyPath_context(recorder, "name");
  node->addObserver_forKeyPath_context(second, "name");
  Node* raw = node.get();
  raw->didChangeValueForKey("name");
  EXPECT_TRUE(wasAlive);
  EXPECT_TRUE(weak.expired());
}

TEST_F(Observation, ThreadsMayRegisterWhileAnotherChanges) {
  std::atomic<bool> isDone = false;
  std::thread changer([&] {
    while (!isDone) node->didChangeValueForKey("none");
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&] {
      Recorder mine;
      for (int n = 0; n < 200; ++n) {
        node->addObserver_forKeyPath_context(mine, "name");
        node->removeObserver_forKeyPath(mine, "name");
      }
    });
  for (auto& thread : threads) thread.join();
  isDone = true;
  changer.join();
  node->addObserver_forKeyPath_context(recorder, "name");
  node->didChangeValueForKey("name");
  EXPECT_EQ(recorder.told.size(), 1U);
}
