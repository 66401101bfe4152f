#pragma once
// Decides who may have a right: the one thing in which the broker of the machine and the broker of a user's session differ.
#include <sys/types.h>

#include <functional>
#include <memory>

#include "platform/linux/authorizationd/Sessions.h"

namespace platform::Linux::authorizationd {

// A question that is under way; its destruction withdraws it, and then it is not answered.
class Question {
 public:
  Question() = default;
  virtual ~Question() = default;
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;
};

class Policy {
 public:
  using Answer = std::function<void(AuthorizationStatus)>;

  Policy() = default;
  virtual ~Policy() = default;
  Policy(const Policy&) = delete;
  Policy& operator=(const Policy&) = delete;

  // Whether calls of this user are answered at all.
  [[nodiscard]] virtual bool serves(uid_t uid) const = 0;
  // May `caller` have the right? `answer` is called once: before this returns nullptr, or later for a question that
  // is still there. A person is asked only with `interaction`.
  virtual std::unique_ptr<Question> ask(const Caller& caller, Right right, bool interaction, Answer answer) = 0;
};

// On the user's own session bus: the tools get nothing that the user has not, so nobody is asked. Any other program is
// denied: to run it, a program in a sandbox would leave the sandbox.
class OwnRightsPolicy final : public Policy {
 public:
  [[nodiscard]] bool serves(uid_t uid) const override;
  std::unique_ptr<Question> ask(const Caller& caller, Right right, bool interaction, Answer answer) override;
};

}  // namespace platform::Linux::authorizationd
