#include "logging/LogRing.h"

#include <gtest/gtest.h>

namespace {

class Ring : public testing::Test {
 protected:
  void put(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(ring.hasRoom());
      const std::uint64_t ticket = ring.takeTicket();
      ring.slotOf(ticket).fill({}, std::to_string(ticket), "label", false, ring.texts());
      ring.publish(ticket);
    }
  }
  void take(int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_TRUE(ring.hasRecord());
      EXPECT_EQ(ring.slotOf(ring.head()).message().logMsg(), std::to_string(ring.head()));
      ring.release(ring.head());
    }
  }

  const std::unique_ptr<LogRingMemory> memory = std::make_unique<LogRingMemory>();
  LogRing ring{*memory};
};

}  // namespace

TEST_F(Ring, HasRoomForAThousandRecordsWhereverItStands) {
  for (int round = 0; round < 5; ++round) {
    put(1000);
    EXPECT_FALSE(ring.hasRoom());
    take(1);
    put(1);
    EXPECT_FALSE(ring.hasRoom());
    take(1000);
    EXPECT_FALSE(ring.hasRecord());
    put(333);
    take(333);
  }
}

TEST_F(Ring, ATicketTooManyWaitsForItsOwnSlot) {
  put(1000);
  const std::uint64_t next = ring.takeTicket();
  EXPECT_FALSE(ring.isFree(next));
  EXPECT_FALSE(ring.isFree(next + 1));
  take(1);
  EXPECT_TRUE(ring.isFree(next));
  EXPECT_FALSE(ring.isFree(next + 1));
}

TEST_F(Ring, ARecordIsThereOnlyOnceItIsPublishedAndAfterThoseBeforeIt) {
  const std::uint64_t first = ring.takeTicket();
  put(1);
  EXPECT_FALSE(ring.hasRecord());
  ring.slotOf(first).fill({}, std::to_string(first), std::string_view(), false, ring.texts());
  EXPECT_FALSE(ring.hasRecord());
  ring.publish(first);
  take(2);
}

TEST_F(Ring, NothingIsLeftAfterAReset) {
  for (const int records : {1, 500, 1000, 3500}) {
    for (int left = records; left > 0; left -= 500) {
      put(std::min(left, 500));
      take(std::min(left, 500));
    }
    put(7);
    ring.reset();
    EXPECT_FALSE(ring.hasRecord());
    put(1000);
    EXPECT_FALSE(ring.hasRoom());
    take(1000);
    ring.reset();
  }
}

TEST_F(Ring, ASurvivingRecordOutlivesTheMemoryItWasReadFrom) {
  put(1);
  LogSlot& slot = ring.slotOf(0);
  const DDLogMessage record = slot.survivingRecord(ring.texts());
  std::ranges::fill(slot.inlineText, 'x');
  EXPECT_EQ(record.logMsg(), "0");
}
