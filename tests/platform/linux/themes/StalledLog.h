#pragma once
// For tests: a flood of calls that the broker refuses, and a log that nobody reads.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "protocol/Broker.h"
#include "tests/platform/linux/themes/BrokerGround.h"

namespace tests::tool {

enum class Log { Daemon, StandardOutput };

class StalledLog : public BrokerGround, public testing::WithParamInterface<Log> {
 protected:
  void SetUp() override {
    BrokerGround::SetUp();
    if (IsSkipped()) return;
    makeDevices();
    listenWithoutReading(folder / "dev/log");
    listenWithoutReading(folder / "journal/socket");
    bind(folder / "dev", "/dev");
    // Only one of the two is not read.
    if (GetParam() == Log::StandardOutput) _reader.emplace([this] { readForEver(); });
  }
  void TearDown() override {
    _reader.reset();
    for (const int log : _logs) ::close(log);
    BrokerGround::TearDown();
  }

  // While the flood lasts, all rounds of three calls of another user are answered, and half of them in little time. The
  // best of a few runs counts: the machine may have other things to do.
  void expectServedFor(int rounds) {
    constexpr long fairTime = 50'000;
    long best = fairTime;
    for (int run = 0; run < 3 && best >= fairTime && !HasFailure(); ++run) best = std::min(best, medianOfARun(rounds));
    EXPECT_LT(best, fairTime) << "microseconds";
  }

 private:
  long medianOfARun(int rounds) const {
    const auto text = onSystemBus(script(rounds));
    long sent = 0;
    long refused = 0;
    EXPECT_EQ(std::sscanf(after(text, "sent ").c_str(), "sent %ld refused %ld", &sent, &refused), 2) << text;
    std::size_t calls = 0;
    int lost = 0;
    long median = 0;
    EXPECT_EQ(std::sscanf(after(text, "calls ").c_str(), "calls %zu lost %d median %ld", &calls, &lost, &median), 3)
        << text;
    std::printf("%s", after(text, "calls ").c_str());
    EXPECT_GT(sent, 150) << "no attack took place";
    EXPECT_GT(refused, 1000) << "the broker does not even refuse any more";
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(calls, static_cast<std::size_t>(rounds) * 3);
    return median;
  }
  static std::string after(const std::string& text, const std::string& start) {
    const auto at = text.find(start);
    return at == std::string::npos ? "" : text.substr(at);
  }
  // /dev with a log of the test's.
  void makeDevices() {
    volume("dev");
    for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"}) {
      write(folder / "dev" / name, "");
      bind(fs::path("/dev") / name, folder / "dev" / name);
    }
    fs::create_symlink("/proc/self/fd", folder / "dev/fd");
  }
  void listenWithoutReading(const fs::path& path) {
    fs::create_directories(path.parent_path());
    const int log = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    _logs.push_back(log);
  }
  void readForEver() const {
    std::vector<pollfd> ready;
    for (const int log : _logs) ready.push_back({.fd = log, .events = POLLIN, .revents = 0});
    char record[4096];
    while (::poll(ready.data(), ready.size(), -1) > 0) {
      for (const auto& log : ready) {
        while (::recv(log.fd, record, sizeof record, MSG_DONTWAIT) > 0) continue;
      }
    }
  }
  std::string script(int rounds) const {
    const auto said = (folder / "flood.txt").string();
    const auto until = [](const std::string& condition) {
      return "timeout 20 bash -c 'until " + condition + "; do sleep 0.01; done'\n";
    };
    std::string lines =
        "mkdir -p /run/systemd/journal; mount --bind " + (folder / "journal").string() + " /run/systemd/journal\n";
    if (GetParam() == Log::StandardOutput) {
      // The kernel keeps its output as long as there is room, and nobody reads it.
      lines += "mkfifo /run/output; sleep 1000 <>/run/output & " + (tests::testedPrograms() / "authorizationd").string() +
               " --system >/run/output &\n" +
               until(std::string("busctl --system status ") + protocol::brokerBusName + " >/dev/null 2>&1");
    }
    return lines + as(invokingUser, "--system call 1 >/dev/null\n") + as(otherAccount, "--system flood >" + said + " &\n") +
           "flood=$!\n" + until("grep -q started " + said) + as(invokingUser, "--system call " + std::to_string(rounds)) +
           "\nkill $flood; wait $flood; cat " + said + "\n";
  }

  std::vector<int> _logs;
  std::optional<tests::OtherProcess> _reader;
};

}  // namespace tests::tool
