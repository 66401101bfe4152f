#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <set>
#include <vector>

#include "platform/linux/authorizationd/Sessions.h"
#include "protocol/Broker.h"

namespace {

using namespace platform;
using namespace platform::Linux::authorizationd;
using namespace std::chrono_literals;

class AuthorizationSessions : public testing::Test {
 protected:
  Handle create(const Caller& caller) {
    Handle handle = 0;
    EXPECT_EQ(sessions.create(caller, handle), errAuthorizationSuccess);
    return handle;
  }
  AuthorizationExternalForm exported(const Caller& caller, Handle handle) {
    AuthorizationExternalForm form;
    EXPECT_EQ(sessions.makeExternalForm(caller, handle, now, form), errAuthorizationSuccess);
    return form;
  }
  AuthorizationStatus import(const Caller& caller, const AuthorizationExternalForm& form, Handle& handle) {
    return sessions.createFromExternalForm(caller, form.bytes, now, handle);
  }
  AuthorizationStatus import(const Caller& caller, const AuthorizationExternalForm& form) {
    Handle ignored = 0;
    return import(caller, form, ignored);
  }

  static std::shared_ptr<const NamedProcess> processOfThisTest() {
    const posix::Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0)));
    return NamedProcess::of(pidfd.get());
  }

  const Caller controller{":1.1", 1000};
  const Caller installer{":1.2", 1000};
  const Caller stranger{":1.3", 2000};
  Time now = 1000s;
  Sessions sessions{Lifetimes{}};
};

TEST_F(AuthorizationSessions, ANewSessionHoldsNoRight) {
  EXPECT_EQ(sessions.holdsRight(controller, create(controller), now), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, AHandleIsOfNoUseToAnotherConnection) {
  const Handle handle = create(controller);
  AuthorizationExternalForm form;
  EXPECT_EQ(sessions.holdsRight(installer, handle, now), errAuthorizationInvalidRef);
  EXPECT_EQ(sessions.grantRight(installer, handle, now), errAuthorizationInvalidRef);
  EXPECT_EQ(sessions.makeExternalForm(installer, handle, now, form), errAuthorizationInvalidRef);
  EXPECT_EQ(sessions.free(installer, handle, true), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationSessions, AHandleIsNeverZero) { EXPECT_NE(create(controller), 0U); }

TEST_F(AuthorizationSessions, HandlesOfTwoBrokersDiffer) {
  Sessions next{Lifetimes{}};
  Handle handle = 0;
  ASSERT_EQ(next.create(controller, handle), errAuthorizationSuccess);
  EXPECT_NE(handle, create(controller));
}

TEST_F(AuthorizationSessions, TheRightFollowsTheExportedForm) {
  const Handle own = create(controller);
  sessions.grantRight(controller, own, now);
  Handle adopted = 0;
  ASSERT_EQ(import(installer, exported(controller, own), adopted), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(installer, adopted, now), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, ARightGrantedAfterTheImportIsSharedToo) {
  const Handle own = create(controller);
  Handle adopted = 0;
  ASSERT_EQ(import(installer, exported(controller, own), adopted), errAuthorizationSuccess);
  sessions.grantRight(controller, own, now);
  EXPECT_EQ(sessions.holdsRight(installer, adopted, now), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, TheRightEndsWithItsTime) {
  const Handle handle = create(controller);
  sessions.grantRight(controller, handle, now);
  now += 5min - 1us;
  EXPECT_EQ(sessions.holdsRight(controller, handle, now), errAuthorizationSuccess);
  now += 1us;
  EXPECT_EQ(sessions.holdsRight(controller, handle, now), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, FreeThatDestroysEndsTheRightForTheOtherHolder) {
  const Handle own = create(controller);
  sessions.grantRight(controller, own, now);
  Handle adopted = 0;
  ASSERT_EQ(import(installer, exported(controller, own), adopted), errAuthorizationSuccess);
  EXPECT_EQ(sessions.free(installer, adopted, true), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(controller, own, now), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, FreeThatDoesNotDestroyLeavesTheRightToTheOtherHolder) {
  const Handle own = create(controller);
  sessions.grantRight(controller, own, now);
  Handle adopted = 0;
  ASSERT_EQ(import(installer, exported(controller, own), adopted), errAuthorizationSuccess);
  EXPECT_EQ(sessions.free(controller, own, false), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(installer, adopted, now), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, AFreedHandleIsInvalid) {
  const Handle handle = create(controller);
  EXPECT_EQ(sessions.free(controller, handle, false), errAuthorizationSuccess);
  EXPECT_EQ(sessions.free(controller, handle, false), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationSessions, AFormOfAnotherUserIsRefusedLikeAWrongOne) {
  const auto form = exported(controller, create(controller));
  Handle handle = 7;
  EXPECT_EQ(import(stranger, form, handle), errAuthorizationDenied);
  EXPECT_EQ(import(stranger, AuthorizationExternalForm{}, handle), errAuthorizationDenied);
  EXPECT_EQ(handle, 7U);
}

TEST_F(AuthorizationSessions, AFormThatDiffersInAnyOneBitIsRefused) {
  const auto form = exported(controller, create(controller));
  for (std::size_t bit = 0; bit < form.bytes.size() * 8; ++bit) {
    auto wrong = form;
    wrong.bytes[bit / 8] ^= std::byte{1} << (bit % 8);
    EXPECT_EQ(import(installer, wrong), errAuthorizationDenied) << bit;
  }
  EXPECT_EQ(import(installer, form), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, AFormOfAnotherLengthIsRefused) {
  const auto form = exported(controller, create(controller));
  std::vector<std::byte> bytes(form.bytes.begin(), form.bytes.end());
  Handle handle = 0;
  EXPECT_EQ(sessions.createFromExternalForm(installer, std::span(bytes).first(31), now, handle), errAuthorizationDenied);
  EXPECT_EQ(sessions.createFromExternalForm(installer, {}, now, handle), errAuthorizationDenied);
  bytes.push_back(std::byte{0});
  EXPECT_EQ(sessions.createFromExternalForm(installer, bytes, now, handle), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, AFormEndsWithItsTime) {
  const Handle handle = create(controller);
  const auto first = exported(controller, handle);
  const auto second = exported(controller, handle);
  now += 60s - 1us;
  EXPECT_EQ(import(installer, first), errAuthorizationSuccess);
  now += 1us;
  EXPECT_EQ(import(installer, second), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, SeveralFormsOfASessionAreGoodAtOnce) {
  const Handle handle = create(controller);
  const auto first = exported(controller, handle);
  const auto second = exported(controller, handle);
  EXPECT_NE(first.bytes, second.bytes);
  EXPECT_EQ(import(installer, first), errAuthorizationSuccess);
  EXPECT_EQ(import(installer, second), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, AFormEndsWithTheLastHandleOfItsSession) {
  const Handle handle = create(controller);
  const auto form = exported(controller, handle);
  sessions.free(controller, handle, false);
  EXPECT_EQ(import(installer, form), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, HandlesEndWithTheirConnection) {
  const Handle own = create(controller);
  const Handle other = create(installer);
  sessions.dropConnection(controller.name);
  EXPECT_EQ(sessions.holdsRight(controller, own, now), errAuthorizationInvalidRef);
  EXPECT_EQ(sessions.holdsRight(installer, other, now), errAuthorizationDenied);
  EXPECT_FALSE(sessions.empty());
  sessions.dropConnection(installer.name);
  EXPECT_TRUE(sessions.empty());
}

TEST_F(AuthorizationSessions, OneConnectionCannotExhaustTheHandlesOfItsUser) {
  for (std::size_t i = 0; i < protocol::maximumHandlesOfConnection; ++i) create(controller);
  Handle handle = 7;
  EXPECT_EQ(sessions.create(controller, handle), errAuthorizationInternal);
  EXPECT_EQ(handle, 7U);
  EXPECT_EQ(sessions.create(installer, handle), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, OneUserCannotExhaustTheHandlesOfAnother) {
  for (std::size_t i = 0; i < protocol::maximumHandlesOfUser; ++i) create({":2." + std::to_string(i), controller.uid});
  Handle handle = 7;
  EXPECT_EQ(sessions.create(controller, handle), errAuthorizationInternal);
  EXPECT_EQ(handle, 7U);
  EXPECT_EQ(sessions.create(stranger, handle), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, ImportsCountAsHandles) {
  const Handle handle = create(controller);
  for (std::size_t i = 0; i < protocol::maximumHandlesOfConnection; ++i)
    ASSERT_EQ(import(installer, exported(controller, handle)), errAuthorizationSuccess);
  EXPECT_EQ(import(installer, exported(controller, handle)), errAuthorizationInternal);
}

TEST_F(AuthorizationSessions, TheOldestFormOfAUserMakesRoomForANewOne) {
  const Handle foreign = create(stranger);
  const auto foreignForm = exported(stranger, foreign);
  const Handle handle = create(controller);
  const auto oldest = exported(controller, handle);
  const auto second = exported(controller, handle);
  const auto third = exported(controller, handle);
  for (std::size_t i = 3; i < protocol::maximumFormsOfUser; ++i) exported(controller, handle);
  EXPECT_EQ(import(installer, second), errAuthorizationSuccess);
  exported(controller, handle);
  EXPECT_EQ(import(installer, oldest), errAuthorizationDenied);
  EXPECT_EQ(import(installer, third), errAuthorizationSuccess);
  EXPECT_EQ(import(stranger, foreignForm), errAuthorizationSuccess);
}

TEST_F(AuthorizationSessions, AFormIsGoodOnceAndASecondUseIsToldFromAWrongForm) {
  const auto form = exported(controller, create(controller));
  ASSERT_EQ(import(installer, form), errAuthorizationSuccess);
  const char* cause = "";
  Handle handle = 7;
  EXPECT_EQ(sessions.createFromExternalForm(installer, form.bytes, now, handle, &cause), errAuthorizationDenied);
  EXPECT_STREQ(cause, "a form that was used before");
  EXPECT_EQ(sessions.createFromExternalForm(installer, AuthorizationExternalForm{}.bytes, now, handle, &cause),
            errAuthorizationDenied);
  EXPECT_STREQ(cause, "a wrong form");
  EXPECT_EQ(handle, 7U);
}

TEST_F(AuthorizationSessions, AFormForAProcessIsRefusedToAnotherAndStaysGoodForTheFirst) {
  const auto named = processOfThisTest();
  const Caller recipient{":1.4", 1000, named->number()};
  const Caller thief{":1.5", 1000, named->number() + 1};
  AuthorizationExternalForm form;
  ASSERT_EQ(sessions.makeExternalForm(controller, create(controller), now, form, named), errAuthorizationSuccess);
  const char* cause = "";
  Handle handle = 0;
  EXPECT_EQ(sessions.createFromExternalForm(thief, form.bytes, now, handle, &cause), errAuthorizationDenied);
  EXPECT_STREQ(cause, "a form that was made for another process");
  EXPECT_EQ(import({":1.6", 1000}, form), errAuthorizationDenied) << "a process that the bus does not know";
  EXPECT_EQ(import({":1.7", 2000, named->number()}, form), errAuthorizationDenied) << "another user";
  EXPECT_EQ(import(recipient, form), errAuthorizationSuccess);
  EXPECT_EQ(import(recipient, form), errAuthorizationDenied);
}

// The number alone may belong to another process by now.
TEST_F(AuthorizationSessions, AFormForAProcessThatEndedIsRefusedToOneOfTheSameNumber) {
  const pid_t child = ::fork();
  if (child == 0) ::pause();
  const posix::Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
  const auto named = NamedProcess::of(pidfd.get());
  ASSERT_NE(named, nullptr);
  ASSERT_EQ(named->number(), child);
  AuthorizationExternalForm form;
  ASSERT_EQ(sessions.makeExternalForm(controller, create(controller), now, form, named), errAuthorizationSuccess);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(import({":1.4", 1000, child}, form), errAuthorizationDenied);
  EXPECT_EQ(NamedProcess::of(pidfd.get()), nullptr);
}

TEST_F(AuthorizationSessions, ADescriptorOfAnotherKindNamesNoProcess) {
  const posix::Descriptor folder(::open("/", O_PATH | O_CLOEXEC));
  EXPECT_EQ(NamedProcess::of(folder.get()), nullptr);
  EXPECT_EQ(NamedProcess::of(-1), nullptr);
}

TEST_F(AuthorizationSessions, EachRightIsGrantedByItselfAndAllAreDestroyedTogether) {
  const Handle own = create(controller);
  Handle adopted = 0;
  ASSERT_EQ(import(installer, exported(controller, own), adopted), errAuthorizationSuccess);
  ASSERT_EQ(sessions.grantRight(controller, own, now), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(controller, own, now, Right::anyProgram), errAuthorizationDenied);
  ASSERT_EQ(sessions.grantRight(controller, own, now, Right::anyProgram), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(controller, own, now, Right::anyProgram), errAuthorizationSuccess);
  ASSERT_EQ(sessions.free(installer, adopted, true), errAuthorizationSuccess);
  EXPECT_EQ(sessions.holdsRight(controller, own, now, Right::anyProgram), errAuthorizationDenied);
}

TEST_F(AuthorizationSessions, AStatusTravelsAsAnErrorAndBack) {
  for (const auto status :
       {errAuthorizationInternal, errAuthorizationInvalidRef, errAuthorizationDenied, errAuthorizationToolExecuteFailure}) {
    EXPECT_EQ(protocol::brokerStatusForError(protocol::brokerErrorForStatus(status)), status);
  }
  EXPECT_EQ(protocol::brokerStatusForError("org.freedesktop.DBus.Error.NoReply"), errAuthorizationInternal);
}

}  // namespace
