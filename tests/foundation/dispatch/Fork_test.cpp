#include "foundation/dispatch/Fork.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using foundation::Fork::Stage;
using testing::ElementsAre;

namespace {

// Handlers that note what they are asked to do, for the length of a test. Nothing is really forked.
class Forks : public testing::Test {
 protected:
  void add(const std::string& name, Stage stage) {
    added.push_back(foundation::Fork::addHandlers({.stage = stage,
                                                   .prepare = [this, name] { notes.push_back(name + " prepares"); },
                                                   .parent = [this, name] { notes.push_back(name + " goes on"); },
                                                   .child = [this, name] { notes.push_back(name + " begins"); }}));
  }
  ~Forks() override {
    for (const auto one : added) foundation::Fork::removeHandlers(one);
  }

  std::vector<foundation::Fork::HandlersID> added;
  std::vector<std::string> notes;
};

}  // namespace

TEST_F(Forks, HandlersThatWaitForThreadsPrepareBeforeThoseThatHoldThreadsUp) {
  add("work", Stage::work);
  add("locks", Stage::locks);
  add("threads", Stage::threads);
  foundation::Fork::prepare();
  foundation::Fork::parent();
  EXPECT_THAT(notes, ElementsAre("work prepares", "threads prepares", "locks prepares", "locks goes on", "threads goes on",
                                 "work goes on"));
}

TEST_F(Forks, WithinAStageTheLastPreparesFirst) {
  add("one", Stage::locks);
  add("two", Stage::locks);
  foundation::Fork::prepare();
  foundation::Fork::parent();
  EXPECT_THAT(notes, ElementsAre("two prepares", "one prepares", "one goes on", "two goes on"));
}

TEST_F(Forks, AHandlerThatIsAddedWhileOthersPreparePreparesToo) {
  added.push_back(foundation::Fork::addHandlers({.stage = Stage::work,
                                                 .prepare =
                                                     [this] {
                                                       std::thread([this] { add("late", Stage::threads); }).join();
                                                       notes.push_back("early prepares");
                                                     },
                                                 .parent = [this] { notes.push_back("early goes on"); }}));
  foundation::Fork::prepare();
  foundation::Fork::parent();
  EXPECT_THAT(notes, ElementsAre("early prepares", "late prepares", "late goes on", "early goes on"));
}

TEST_F(Forks, HandlersThatOnlyConcernAChildAreRemovedWhileOthersPrepare) {
  const auto childOnly = foundation::Fork::addHandlers({.child = [this] { notes.push_back("never"); }});
  added.push_back(foundation::Fork::addHandlers(
      {.stage = Stage::work,
       .prepare = [&] { std::thread([&] { foundation::Fork::removeHandlers(childOnly); }).join(); },
       .parent = [this] { notes.push_back("goes on"); }}));
  foundation::Fork::prepare();
  foundation::Fork::parent();
  EXPECT_THAT(notes, ElementsAre("goes on"));
}

TEST_F(Forks, HandlersThatHavePreparedAreNotRemovedBeforeTheyGoOn) {
  add("one", Stage::locks);
  foundation::Fork::prepare();
  std::thread remover([this] {
    foundation::Fork::removeHandlers(added.front());
    notes.push_back("removed");
  });
  foundation::Fork::parent();
  remover.join();
  EXPECT_THAT(notes, ElementsAre("one prepares", "one goes on", "removed"));
}

TEST_F(Forks, RemovingHandlersThatHavePreparedWaitsForThem) {
  std::atomic<bool> isRemoving{false};
  std::atomic<bool> isRemoved{false};
  const auto handlers = foundation::Fork::addHandlers({.prepare = [] {},
                                                       .parent =
                                                           [&] {
                                                             // Nothing to wait for: it must not be, however long one looks.
                                                             for (int i = 0; i < 30 && !isRemoved; ++i)
                                                               std::this_thread::sleep_for(std::chrono::milliseconds(1));
                                                             EXPECT_FALSE(isRemoved);
                                                           }});
  foundation::Fork::prepare();
  std::thread remover([&] {
    isRemoving = true;
    foundation::Fork::removeHandlers(handlers);
    isRemoved = true;
  });
  while (!isRemoving) std::this_thread::yield();
  foundation::Fork::parent();
  remover.join();
}
