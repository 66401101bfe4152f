// authorizationd: holds authorization sessions and lends its rights to the assistant tool.
//
//   authorizationd --system     as root on the system bus; the policy service decides
//   authorizationd --session    on the user's session bus, with the user's own rights; nobody is asked
//
// Options: --idle-seconds N (30), after which it leaves when unused; --form-seconds N (60) and --right-seconds N (300), the
// life of an external form and of a granted right; --person-seconds N (300) and --service-seconds N (30), how long the
// policy service may take to answer when a person is asked and when nobody is. --tools FOLDER, with --session only and as
// often as needed, names the folders whose programs are tools, in place of the list in the policy file. Started by the bus
// on demand.
#include <fcntl.h>
#include <unistd.h>
#include <csignal>

#include <charconv>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/authorizationd/IdleExit.h"
#include "platform/linux/authorizationd/Journal.h"
#include "platform/linux/authorizationd/PolkitPolicy.h"
#include "platform/linux/authorizationd/Service.h"
#include "platform/linux/authorizationd/ToolFolders.h"
#include "protocol/Broker.h"

namespace {

using namespace platform::Linux::authorizationd;

struct Options {
  bool system = false;
  bool session = false;
  Time idle = std::chrono::seconds(30);
  Lifetimes lifetimes;
  Patience patience;
  std::vector<std::string> tools;
};

bool readSeconds(const char* text, Time& time) {
  constexpr unsigned most = 24 * 60 * 60;
  if (text == nullptr) return false;
  unsigned seconds = 0;
  const char* end = text + std::strlen(text);
  const auto [stopped, error] = std::from_chars(text, end, seconds);
  if (error != std::errc() || stopped != end || seconds == 0 || seconds > most) return false;
  time = std::chrono::seconds(seconds);
  return true;
}

// Where the value of an option belongs, or nullptr.
Time* placeOf(std::string_view option, Options& options) {
  if (option == "--idle-seconds") return &options.idle;
  if (option == "--form-seconds") return &options.lifetimes.form;
  if (option == "--right-seconds") return &options.lifetimes.right;
  if (option == "--person-seconds") return &options.patience.person;
  return option == "--service-seconds" ? &options.patience.service : nullptr;
}

std::optional<Options> readOptions(char** argument) {
  Options options;
  while (*++argument != nullptr) {
    const std::string_view name = *argument;
    if (name == "--system") {
      options.system = true;
    } else if (name == "--session") {
      options.session = true;
    } else if (name == "--tools") {
      if (*++argument == nullptr) return std::nullopt;
      options.tools.emplace_back(*argument);
    } else if (Time* time = placeOf(name, options)) {
      if (!readSeconds(*++argument, *time)) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (options.system == options.session || (options.system && !options.tools.empty())) return std::nullopt;
  return options;
}

// No descriptor of the broker may take the number of a standard one.
bool openStandardDescriptors() {
  int descriptor = 0;
  do {
    descriptor = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (descriptor < 0) return false;
  } while (descriptor <= STDERR_FILENO);
  return ::close(descriptor) == 0;
}

std::chrono::microseconds steadyTime() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

int fail(Journal& journal, const char* what, int status) {
  journal.record(std::string(what) + ": " + std::strerror(-status));
  return 1;
}

// The administrator's list is read anew for each program, so that a change is in force at once. In a user's session that
// user is trusted besides root: the tools get no rights there that the user lacks.
std::string objectionTo(int program, const Options& options, Journal& journal) {
  const uid_t trusted = options.system ? 0 : ::geteuid();
  if (!options.tools.empty()) return objectionAsTool(program, options.tools, trusted);
  std::string cause;
  const auto policy = readPolicy(protocol::policyFilePath, 0, cause);
  if (!cause.empty()) journal.record(cause);
  return objectionAsTool(program, options.system ? policy.tools : policy.sessionTools, trusted);
}

int serve(const Options& options, Journal& journal, sd_event* loop, sd_bus* bus) {
  std::unique_ptr<Policy> policy = std::make_unique<OwnRightsPolicy>();
  if (options.system) policy = std::make_unique<PolkitPolicy>(bus, journal, options.patience);
  const auto checkTool = [&](int program) { return objectionTo(program, options, journal); };
  Service service(bus, loop, {.policy = *policy, .journal = journal, .checkTool = checkTool}, options.lifetimes);
  IdleExit idleExit(bus, loop, service, options.idle);
  if (const int status = service.publish(); status < 0) return fail(journal, "no object on the bus", status);
  if (const int status = idleExit.start(); status < 0) return fail(journal, "no timer", status);
  if (const int status = sd_bus_request_name(bus, protocol::brokerBusName, 0); status < 0)
    return fail(journal, "no name on the bus", status);
  const int status = sd_event_loop(loop);
  journal.reportCounted();
  return status < 0 ? 1 : 0;
}

int run(const Options& options, Journal& journal) {
  sd_event* loop = nullptr;
  sd_bus* bus = nullptr;
  if (const int status = sd_event_default(&loop); status < 0) return fail(journal, "no event loop", status);
  if (const int status = options.system ? sd_bus_open_system(&bus) : sd_bus_open_user(&bus); status < 0) {
    sd_event_unref(loop);
    return fail(journal, "no bus", status);
  }
  sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
  sd_bus_set_exit_on_disconnect(bus, 1);
  sd_event_add_signal(loop, nullptr, SIGTERM, nullptr, nullptr);
  const int exitStatus = serve(options, journal, loop, bus);
  sd_bus_flush_close_unref(bus);
  sd_event_unref(loop);
  return exitStatus;
}

void blockSignals() {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t waitedFor;
  sigemptyset(&waitedFor);
  sigaddset(&waitedFor, SIGCHLD);
  sigaddset(&waitedFor, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &waitedFor, nullptr);
}

}  // namespace

int main(int /*count*/, char** arguments) {
  if (!openStandardDescriptors()) return 1;
  blockSignals();
  Journal journal({}, STDOUT_FILENO, steadyTime);
  const auto options = readOptions(arguments);
  if (!options) {
    journal.record(
        "usage: authorizationd --system|--session [--idle-seconds N] [--form-seconds N] [--right-seconds N] "
        "[--person-seconds N] [--service-seconds N] [--tools FOLDER]... (with --session)");
    return 2;
  }
  if (options->system && ::geteuid() != 0) {
    journal.record("--system needs root");
    return 2;
  }
  return run(*options, journal);
}
