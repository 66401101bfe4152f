#pragma once
// One service of the system's service manager, through systemctl.
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace AssistantTool {

class Service {
 public:
  explicit Service(std::string unit) : _unit(std::move(unit)) {}

  // True when the service is not running any more. One that does not end by itself is killed.
  [[nodiscard]] bool stop() const;
  // Reads the definitions anew and starts the service. True when it runs within ten seconds and still is the same process
  // a moment later.
  [[nodiscard]] bool startAnew() const;

 private:
  struct State {
    std::string active;
    pid_t mainProcess = 0;
    [[nodiscard]] bool isRunning() const { return active == "active" && mainProcess != 0; }
  };
  [[nodiscard]] State state() const;
  [[nodiscard]] bool staysRunning(pid_t process) const;

  std::string _unit;
};

}  // namespace AssistantTool
