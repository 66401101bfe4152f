#pragma once
// The installer as a process that the application starts and watches. One thread; answers come from the event loop.
#include <sys/types.h>
#include <systemd/sd-event.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sdk {

// The facts of an installer's bundle, from its information list.
struct InstallerBundle {
  std::string program;     // absolute path of the executable
  std::string identifier;  // its name on the session bus
};
// nullopt when it cannot be read; `cause` then says why.
std::optional<InstallerBundle> readInstallerBundle(const std::string& path, std::string& cause);

struct InstallerCommand {
  std::string program;
  std::vector<std::string> arguments;
  std::string parentWindow;  // may be empty
};

class InstallerProcess {
 public:
  // The exit status; -1 when a signal ended it, or when somebody else collected it.
  using Ended = std::function<void(int status)>;

  // Starts the program in a session of its own, in "/", with no open files but the standard ones. False when that fails;
  // `cause` then says why.
  bool start(sd_event* loop, const InstallerCommand& command, Ended ended, std::string& cause);

  [[nodiscard]] pid_t number() const { return _number; }
  // Stands for this process even after it ended; owned.
  [[nodiscard]] int pidfd() const { return sd_event_source_get_io_fd(_watch.get()); }

 private:
  struct Unwatch {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  };
  int watch(sd_event* loop, int pidfd);

  pid_t _number = 0;
  std::unique_ptr<sd_event_source, Unwatch> _watch;
  Ended _ended;
};

}  // namespace sdk
