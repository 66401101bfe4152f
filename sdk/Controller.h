#pragma once
// The object behind kelto_controller: one job at a time, as a chain of steps that never wait. Obtain the right, start the
// installer, wait until it listens, hand the rights over to it, and watch it until it ends.
//
// One thread. The handler is called from dispatch() only; what happens elsewhere waits for it in a queue.
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kelto/controller.h>
#include "protocol/PolicyFile.h"
#include "sdk/BrokerSession.h"
#include "sdk/InstallerProcess.h"
#include "sdk/SessionBus.h"

namespace sdk {

struct Frame {
  double x;
  double y;
  double width;
  double height;
};

struct Job {
  std::optional<std::string> newBundle;  // without one the installed bundle is removed
  std::string installedBundle;
  bool isUpdate = false;
};

class Controller {
 public:
  // Null when the loop cannot be made.
  static std::unique_ptr<Controller> make(const char* identifier, kelto_handler handler, void* data);
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  [[nodiscard]] int fd() const { return sd_event_get_fd(_loop.get()); }
  void dispatch();
  [[nodiscard]] bool isDispatching() const { return _dispatches > 0; }
  // For a handler that frees the controller: it is called no more, and the object goes with the outermost dispatch().
  void freeAfterDispatch() { _isFreed = true; }
  [[nodiscard]] bool isFreed() const { return _isFreed; }

  void setInstaller(std::string path) { _installerPath = std::move(path); }
  void setFrame(const Frame& frame) { _frame = frame; }
  // Empty: no window.
  void setParentWindow(std::string name) { _parentWindow = std::move(name); }

  // Negative errno when it cannot begin.
  int obtainRight();
  int run(Job job);

 private:
  struct Event {
    int kind;
    int number;
    std::string text;
  };
  struct UnrefLoop {
    void operator()(sd_event* loop) const { sd_event_unref(loop); }
  };
  struct Unref {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  };
  using Source = std::unique_ptr<sd_event_source, Unref>;
  using Loop = std::unique_ptr<sd_event, UnrefLoop>;

  Controller(Loop loop, Source wakeUp, kelto_handler handler, void* data);

  void turn();
  void enter(int kind, int number, std::string text);

  void offerQuit(const char* identifier);
  void askForRight();
  void startInstaller();
  void waitForInstaller();
  void handOver(const std::string& connection);
  void installerEnded(int status);
  void fail(const Failure& failure);
  [[nodiscard]] std::vector<std::string> arguments() const;

  Loop _loop;
  Source _wakeUp;  // its descriptor makes the loop's readable for events that wait in the queue
  Source _patience;
  kelto_handler _handler;
  void* _data;
  std::deque<Event> _events;
  int _dispatches = 0;  // more than one while the handler runs a loop of its own
  bool _isFreed = false;

  std::string _installerPath = std::string(protocol::packagedToolFolder) + "/KeltoInstaller.app";
  std::optional<Frame> _frame;
  std::string _parentWindow;
  std::optional<Job> _job;
  bool _isAsking = false;
  bool _hasHandedOver = false;
  InstallerBundle _bundle;
  InstallerProcess _installer;
  BrokerSession _session;
  SessionBus _sessionBus;
};

}  // namespace sdk
