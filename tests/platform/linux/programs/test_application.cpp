// An application as the workspace meets it. Tests copy it into bundles; its first argument says how it behaves:
//
//   plain                leaves SIGTERM as it is
//   ignore               ignores SIGTERM
//   handler | refuse     handles SIGTERM by ending, or by staying
//   bus NAME KIND        owns NAME on the session bus; KIND says how it takes the action "quit": "quit" ends, "refuse"
//                        answers and stays, "silent" never answers, "none" has no actions at all, "without" lists its
//                        actions and has no such one, "disabled" has it switched off
//   window KIND          has two windows; KIND as above, or "foreign" as if the windows came from another machine,
//   "unnamed"
//                        as if they came from no process, "stubborn" when they do not offer to be closed; with a NAME in
//                        between it owns that too
//   connect PATH         is connected to the socket at PATH, and handles SIGTERM by ending
//   twice                handles SIGTERM by ending, and so does a child of its own
//   parent PATH          is not, but has a child that is
//   manager STATE PID [NAME READONLY WRITABLE]
//                        is a service manager on the system bus with the one unit "known.service", which has that bus name
//                        and these folders, separated by colons
//   count IDENTIFIER     prints how many copies of that application it sees, and ends
//
// With a file named by KELTO_TEST_REPORT it writes all that it was started with to that file, and ends. It prints "ready"
// when it is, and a line for everything that it is asked. It ends by itself after two minutes.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/linux/Bundle.h"
#include "platform/linux/RunningCopies.h"
#include "platform/linux/SystemLog.h"

namespace {

std::string kind;

void say(const std::string& line) { std::cout << line << std::endl; }

void sayTerminated() {
  constexpr char line[] = "SIGTERM\n";
  if (::write(STDOUT_FILENO, line, sizeof line - 1) < 0) ::_exit(1);
}

void onTerminationQuit(int /*number*/) {
  sayTerminated();
  ::_exit(0);
}

void onTerminationStay(int /*number*/) { sayTerminated(); }

int waitForSignals() {
  say("ready");
  for (;;) ::pause();
}

int takeAction(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  const char* action = nullptr;
  sd_bus_message_read_basic(message, 's', &action);
  say(std::string("action ") + action + " " + sd_bus_message_get_signature(message, 1) + " " +
      sd_bus_message_get_path(message));
  if (kind == "quit") ::_exit(0);
  if (kind == "silent") return 1;
  return sd_bus_reply_method_return(message, "");
}

int describeAction(sd_bus_message* message, void* /*data*/, sd_bus_error* error) {
  if (kind == "disabled") return sd_bus_reply_method_return(message, "(bgav)", 0, "", 0);
  return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "The named action ('quit') does not exist.");
}

int serve(sd_bus* bus) {
  say("ready");
  for (;;) {
    const int progress = sd_bus_process(bus, nullptr);
    if (progress < 0) return 1;
    if (progress == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

sd_bus* ownName(std::string name) {
  static const sd_bus_vtable actions[] = {
      SD_BUS_VTABLE_START(0), SD_BUS_METHOD("ActivateAction", "sava{sv}", "", takeAction, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_VTABLE_END};
  static const sd_bus_vtable list[] = {SD_BUS_VTABLE_START(0),
                                       SD_BUS_METHOD("Describe", "s", "(bgav)", describeAction, SD_BUS_VTABLE_UNPRIVILEGED),
                                       SD_BUS_VTABLE_END};
  sd_bus* bus = nullptr;
  if (sd_bus_open_user(&bus) < 0 || sd_bus_request_name(bus, name.c_str(), 0) < 0) return nullptr;
  std::replace(name.begin(), name.end(), '.', '/');
  std::replace(name.begin(), name.end(), '-', '_');
  if (kind != "none")
    sd_bus_add_object_vtable(bus, nullptr, ("/" + name).c_str(), "org.freedesktop.Application", actions, nullptr);
  if (kind == "without" || kind == "disabled")
    sd_bus_add_object_vtable(bus, nullptr, ("/" + name).c_str(), "org.gtk.Actions", list, nullptr);
  return bus;
}

int offerActions(const std::string& name) {
  ::signal(SIGTERM, onTerminationQuit);
  sd_bus* bus = ownName(name);
  return bus == nullptr ? 1 : serve(bus);
}

// Also serves the bus from a thread, as toolkits do.
int offerActionsAside(const std::string& name) {
  sd_bus* bus = ownName(name);
  if (bus == nullptr) return 1;
  std::thread([bus] {
    while (sd_bus_process(bus, nullptr) >= 0) sd_bus_wait(bus, UINT64_MAX);
  }).detach();
  return 0;
}

int connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int connection = ::socket(AF_UNIX, SOCK_STREAM, 0);
  return ::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

std::string loadState;
std::uint32_t mainProcess = 0;
std::string busName;
std::string readOnlyFolders;
std::string writableFolders;

int appendList(sd_bus_message* reply, const std::string& text) {
  std::vector<std::string> parts;
  std::istringstream words(text);
  for (std::string part; std::getline(words, part, ':');) parts.push_back(part);
  std::vector<char*> pointers;
  for (auto& part : parts) pointers.push_back(part.data());
  pointers.push_back(nullptr);
  return sd_bus_message_append_strv(reply, pointers.data());
}

int loadUnit(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(message, "o", "/unit");
}

int giveUnit(sd_bus_message* message, void* /*data*/, sd_bus_error* error) {
  const char* name = nullptr;
  sd_bus_message_read_basic(message, 's', &name);
  if (std::strcmp(name, "known.service") == 0) return sd_bus_reply_method_return(message, "o", "/unit");
  if (loadState == "mute") return 1;
  if (loadState == "broken") return sd_bus_error_set(error, "org.freedesktop.DBus.Error.AccessDenied", "Not for you");
  return sd_bus_error_setf(error, "org.freedesktop.systemd1.NoSuchUnit", "Unit %s not loaded.", name);
}

int giveProperty(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
                 sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/) {
  if (std::strcmp(property, "MainPID") == 0) return sd_bus_message_append(reply, "u", mainProcess);
  if (std::strcmp(property, "ReadOnlyPaths") == 0) return appendList(reply, readOnlyFolders);
  if (std::strcmp(property, "ReadWritePaths") == 0) return appendList(reply, writableFolders);
  if (std::strcmp(property, "BusName") == 0) return sd_bus_message_append(reply, "s", busName.c_str());
  return sd_bus_message_append(reply, "s", loadState.c_str());
}

int manageServices() {
  static const sd_bus_vtable manager[] = {
      SD_BUS_VTABLE_START(0), SD_BUS_METHOD("GetUnit", "s", "o", giveUnit, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_METHOD("LoadUnit", "s", "o", loadUnit, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
  static const sd_bus_vtable unit[] = {SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("LoadState", "s", giveProperty, 0, 0),
                                       SD_BUS_VTABLE_END};
  static const sd_bus_vtable service[] = {SD_BUS_VTABLE_START(0),
                                          SD_BUS_PROPERTY("MainPID", "u", giveProperty, 0, 0),
                                          SD_BUS_PROPERTY("BusName", "s", giveProperty, 0, 0),
                                          SD_BUS_PROPERTY("ReadOnlyPaths", "as", giveProperty, 0, 0),
                                          SD_BUS_PROPERTY("ReadWritePaths", "as", giveProperty, 0, 0),
                                          SD_BUS_VTABLE_END};
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0 || sd_bus_request_name(bus, "org.freedesktop.systemd1", 0) < 0) return 1;
  const char* interface = "org.freedesktop.systemd1.Manager";
  sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/systemd1", interface, manager, nullptr);
  sd_bus_add_object_vtable(bus, nullptr, "/unit", "org.freedesktop.systemd1.Unit", unit, nullptr);
  sd_bus_add_object_vtable(bus, nullptr, "/unit", "org.freedesktop.systemd1.Service", service, nullptr);
  return serve(bus);
}

class Windows {
 public:
  int show() {
    ::signal(SIGTERM, onTerminationQuit);
    if (xcb_connection_has_error(_display) != 0) return 1;
    makeWindow();
    makeWindow();
    xcb_flush(_display);
    for (std::size_t mapped = 0; xcb_generic_event_t* event = xcb_wait_for_event(_display);) {
      const auto type = event->response_type & 0x7FU;
      if (type == XCB_MAP_NOTIFY && ++mapped == 2) say("ready");
      if (type == XCB_CLIENT_MESSAGE) say("close");
      if (type == XCB_CLIENT_MESSAGE && kind == "quit") return 0;
      std::free(event);
    }
    return 1;
  }

 private:
  xcb_atom_t atom(const char* name) {
    const auto cookie = xcb_intern_atom(_display, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(_display, cookie, nullptr);
    const xcb_atom_t number = reply->atom;
    std::free(reply);
    return number;
  }

  void set(xcb_window_t window, const char* name, xcb_atom_t type, std::uint8_t format, std::size_t count,
           const void* data) {
    xcb_change_property(_display, XCB_PROP_MODE_REPLACE, window, atom(name), type, format,
                        static_cast<std::uint32_t>(count), data);
  }

  void makeWindow() {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(_display)).data;
    const xcb_window_t window = xcb_generate_id(_display);
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_create_window(_display, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 100, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_EVENT_MASK, &events);
    const auto process = static_cast<std::uint32_t>(::getpid());
    if (kind != "unnamed") set(window, "_NET_WM_PID", XCB_ATOM_CARDINAL, 32, 1, &process);
    const xcb_atom_t deletion = atom(kind == "stubborn" ? "KELTO_TEST_PROTOCOL" : "WM_DELETE_WINDOW");
    set(window, "WM_PROTOCOLS", XCB_ATOM_ATOM, 32, 1, &deletion);
    char machine[256] = "elsewhere.example";
    if (kind != "foreign") ::gethostname(machine, sizeof machine - 1);
    set(window, "WM_CLIENT_MACHINE", XCB_ATOM_STRING, 8, std::strlen(machine), machine);
    xcb_map_window(_display, window);
  }

  xcb_connection_t* _display = xcb_connect(nullptr, nullptr);
};

int count(const std::string& identifier) {
  platform::Linux::SystemLog log("test");
  const platform::Linux::Bundles bundles(log);
  say(std::to_string(platform::Linux::copiesOf({identifier, ""}, bundles).size()));
  return 0;
}

std::string descriptors() {
  std::string text;
  for (int number = 0; number < 1024; ++number) {
    std::error_code missing;
    const auto target = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(number), missing);
    if (!missing) text += "descriptor " + std::to_string(number) + " " + target.string() + "\n";
  }
  return text;
}

std::string signals() {
  std::string text;
  sigset_t blocked;
  ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigismember(&blocked, number) == 1) text += "blocked " + std::to_string(number) + "\n";
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
      text += "ignored " + std::to_string(number) + "\n";
  }
  return text;
}

int report(const std::string& file, char** arguments) {
  std::string text = descriptors() + signals();
  for (; *arguments != nullptr; ++arguments) text += std::string("argument ") + *arguments + "\n";
  for (char** entry = environ; *entry != nullptr; ++entry) text += std::string("environment ") + *entry + "\n";
  text += "folder " + std::filesystem::current_path().string() + "\n";
  text += "process " + std::to_string(::getpid()) + " of " + std::to_string(::getppid()) + " in " +
          std::to_string(::getsid(0)) + "\n";
  std::ofstream(file + ".part") << text;
  std::filesystem::rename(file + ".part", file);
  return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
  ::alarm(120);
  if (const char* file = std::getenv("KELTO_TEST_REPORT")) return report(file, arguments);
  const std::string behaviour = words.empty() ? "plain" : words[0];
  if (words.size() > 1) kind = words.back();
  if (behaviour == "ignore") ::signal(SIGTERM, SIG_IGN);
  if (behaviour == "handler" || behaviour == "parent" || behaviour == "twice" || behaviour == "connect")
    ::signal(SIGTERM, onTerminationQuit);
  if (behaviour == "refuse") ::signal(SIGTERM, onTerminationStay);
  if (behaviour == "bus") return offerActions(words.at(1));
  if (behaviour == "window" && words.size() > 2 && offerActionsAside(words.at(1)) != 0) return 1;
  if (behaviour == "window") return Windows().show();
  if (behaviour == "connect" && connectTo(words.at(1)) != 0) return 1;
  if (behaviour == "parent" && ::fork() == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (connectTo(words.at(1)) == 0) say("child");
    for (;;) ::pause();
  }
  if (behaviour == "twice" && ::fork() == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    say("child");
    for (;;) ::pause();
  }
  if (behaviour == "count") return count(words.at(1));
  if (behaviour == "manager") {
    loadState = words.at(1);
    mainProcess = static_cast<std::uint32_t>(std::stoul(words.at(2)));
    if (words.size() > 5) std::tie(busName, readOnlyFolders, writableFolders) = std::tie(words[3], words[4], words[5]);
    return manageServices();
  }
  return waitForSignals();
}
