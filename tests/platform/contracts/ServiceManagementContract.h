#pragma once
// The contract of ServiceManagement.
//
// A World has: `services()`; `start(label)` and `stop(label)`, after which the manager knows the job as running or as
// stopped; `disconnect()`, after which the manager cannot be asked.
#include <gtest/gtest.h>

#include "platform/ServiceManagement.h"

namespace tests::contracts {

template <class World>
class ServiceManagementContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(ServiceManagementContract);

TYPED_TEST_P(ServiceManagementContract, ARunningJobHasItsLabelAndTheNumberOfItsProcess) {
  this->world.start("known");
  const auto job = this->world.services().copyJobDictionary("known");
  ASSERT_TRUE(job);
  EXPECT_EQ(job->at("Label"), "known");
  ASSERT_TRUE(job->contains("PID"));
  EXPECT_GT(*job->at("PID").template as<std::int64_t>(), 0);
}

TYPED_TEST_P(ServiceManagementContract, AStoppedJobHasNoProcess) {
  this->world.stop("known");
  const auto job = this->world.services().copyJobDictionary("known");
  ASSERT_TRUE(job);
  EXPECT_FALSE(job->contains("PID"));
}

TYPED_TEST_P(ServiceManagementContract, AnUnknownJobHasNoDescription) {
  this->world.start("known");
  EXPECT_EQ(this->world.services().copyJobDictionary("unknown"), std::nullopt);
}

TYPED_TEST_P(ServiceManagementContract, AManagerThatCannotBeAskedDescribesNothing) {
  this->world.start("known");
  this->world.disconnect();
  EXPECT_EQ(this->world.services().copyJobDictionary("known"), std::nullopt);
}

REGISTER_TYPED_TEST_SUITE_P(ServiceManagementContract, ARunningJobHasItsLabelAndTheNumberOfItsProcess,
                            AStoppedJobHasNoProcess, AnUnknownJobHasNoDescription,
                            AManagerThatCannotBeAskedDescribesNothing);

}  // namespace tests::contracts
