#include "privileged/NSString+KAPathExtensions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"

using testing::MatchesRegex;

namespace {

class NSStringKAPathExtensions : public testing::Test {
 protected:
  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(NSStringKAPathExtensions, TemporaryPathIsAFreshNameInTheTemporaryFolderAndMakesNothing) {
  const auto before = fake.files.items.size();
  const auto path = NSString::KAPathExtensions::temporaryPath(fake.files);
  EXPECT_THAT(path, MatchesRegex("/tmp/Kelto[^/X]{10}"));
  EXPECT_NE(NSString::KAPathExtensions::temporaryPath(fake.files), path);
  EXPECT_EQ(fake.files.items.size(), before);
}

TEST_F(NSStringKAPathExtensions, TemporaryPathsOfAnyLengthAreWhole) {
  fake.files.temporaryFolder = "/" + std::string(4000, 'd');
  EXPECT_EQ(NSString::KAPathExtensions::temporaryPath(fake.files).size(), 4001U + 16U);
}
