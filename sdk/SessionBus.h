#pragma once
// The application's connection to the session bus: it is asked to quit there, and hands its rights to the installer there.
// One thread; answers come from the event loop.
#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sdk/BrokerSession.h"
#include "sdk/BusCall.h"

namespace sdk {

class SessionBus {
 public:
  using Done = std::function<void(const std::optional<Failure>&)>;
  using Found = std::function<void(const std::string& connection)>;

  SessionBus(sd_event* loop, std::function<void()> quitRequested);

  [[nodiscard]] bool isOpen() const { return _bus != nullptr; }

  // An errno value and its text.
  using Refused = std::function<void(int error, const std::string& cause)>;

  // Takes the name and offers the action "quit" under it. A second copy of the application gets the name when the first one
  // gives it up. `refused` is called when the name is not there now. Does nothing without a bus: every job says that.
  void offerQuit(const std::string& identifier, const Refused& refused);

  // Waits until that process owns the name, for as long as the object lives or until stopWaiting(). Once.
  void whenOwned(const std::string& name, pid_t process, Found found);
  void stopWaiting();

  // Sends the form to that connection, and only to it. `done` is called when the bus has it.
  void sendForm(const Form& form, const std::string& connection, const Done& done);

 private:
  struct Unref {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  };
  using Slot = std::unique_ptr<sd_bus_slot, Unref>;

  void lookForOwner();
  void lookForOwnerOf(const std::string& name);
  void compareProcess(const std::string& owner);

  static const sd_bus_vtable applicationMethods[];

  std::function<void()> _quitRequested;
  std::string _name;
  pid_t _process = 0;
  Found _found;
  Bus _bus;
  Slot _application;
  Slot _ownerChanges;
};

}  // namespace sdk
