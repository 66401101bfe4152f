#pragma once
// Parts of a test that run in a process of their own, as another account for instance.
#include <grp.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <utility>

namespace tests {

// This process becomes the account's for good, with no other group than its own. Ends when that is not possible.
inline void becomeAccount(uid_t account) {
  if (::setgroups(0, nullptr) != 0 || ::setresgid(account, account, account) != 0 ||
      ::setresuid(account, account, account) != 0) {
    ::_exit(126);
  }
  // A change of accounts takes this setting away.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

// Runs `act` in another process until it returns or this object goes, whatever is first.
class OtherProcess {
 public:
  explicit OtherProcess(const std::function<void()>& act) : _process(::fork()) {
    if (_process != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    act();
    ::_exit(0);
  }
  OtherProcess(uid_t account, const std::function<void()>& act)
      : OtherProcess([&] {
          becomeAccount(account);
          act();
        }) {}
  ~OtherProcess() { stop(); }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  [[nodiscard]] pid_t number() const { return _process; }
  void stop() {
    if (_process <= 0) return;
    ::kill(_process, SIGKILL);
    wait();
  }
  // Its exit status, or the number of the signal that ended it, negative.
  int wait() {
    int status = 0;
    ::waitpid(std::exchange(_process, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  pid_t _process;
};

// The result of `act`, called by another process of that account.
inline std::string resultAs(uid_t account, const std::function<std::string()>& act) {
  int ends[2];
  if (::pipe(ends) != 0) return "no pipe";
  OtherProcess process(account, [&] {
    ::close(ends[0]);
    const std::string text = act();
    if (::write(ends[1], text.data(), text.size()) < 0) ::_exit(1);
  });
  ::close(ends[1]);
  std::string text;
  char chunk[4096];
  for (ssize_t got = 0; (got = ::read(ends[0], chunk, sizeof chunk)) > 0;)
    text.append(chunk, static_cast<std::size_t>(got));
  ::close(ends[0]);
  process.wait();
  return text;
}

}  // namespace tests
