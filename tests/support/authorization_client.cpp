// A client of the broker for tests that need another user or another process: does what its arguments say, one by one, with
// one session, and tells each status on standard error.
//
//   create          makes a session
//   copy FLAGS      asks for the right
//   export          prints the external form on standard output
//   import          reads an external form from standard input
//   execute PATH    runs the tool, has it report, and tells what it printed
//   free FLAGS
//   wait            reads a line from standard input
//   hold            waits until nobody reads standard output any more
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/linux/AuthorizationServices.h"

namespace {

using namespace platform;

class ErrorLog final : public SystemLog {
 public:
  void log(std::string_view line) override { std::cerr << line << "\n"; }
};

void print(const AuthorizationExternalForm& form) {
  for (const std::byte byte : form.bytes) std::printf("%02x", std::to_integer<unsigned>(byte));
  std::puts("");
  std::fflush(stdout);
}

AuthorizationExternalForm readForm() {
  AuthorizationExternalForm form;
  std::string text;
  std::getline(std::cin, text);
  text.resize(form.bytes.size() * 2, '0');
  for (std::size_t i = 0; i < form.bytes.size(); ++i) {
    form.bytes[i] = static_cast<std::byte>(std::strtoul(text.substr(i * 2, 2).c_str(), nullptr, 16));
  }
  return form;
}

void waitForReaderToGo() {
  pollfd reader{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
  ::poll(&reader, 1, -1);
}

class Client {
 public:
  AuthorizationStatus copy(AuthorizationFlags flags) {
    AuthorizationItem item{.name = kAuthorizationRightExecute};
    return _services.copyRights(_authorization, {.count = 1, .items = &item}, flags);
  }

  AuthorizationStatus exportForm() {
    AuthorizationExternalForm form;
    const AuthorizationStatus status = _services.makeExternalForm(_authorization, form);
    if (status == errAuthorizationSuccess) print(form);
    return status;
  }

  AuthorizationStatus execute(const std::string& path) {
    std::unique_ptr<ByteStream> stream;
    const AuthorizationStatus status = _services.executeWithPrivileges(_authorization, path, 0, stream);
    if (status != errAuthorizationSuccess) return status;
    stream->write("report\n", 7);
    char chunk[512];
    while (const std::size_t got = stream->read(chunk, sizeof chunk)) std::cerr << std::string_view(chunk, got);
    return status;
  }

  // `argument` is moved past what the command takes.
  AuthorizationStatus perform(const std::string& command, char**& argument) {
    const auto flags = [&argument] { return static_cast<AuthorizationFlags>(std::atoi(*argument++)); };
    std::string line;
    if (command == "create") return _services.create(0, _authorization);
    if (command == "copy") return copy(flags());
    if (command == "export") return exportForm();
    if (command == "import") return _services.createFromExternalForm(readForm(), _authorization);
    if (command == "execute") return execute(*argument++);
    if (command == "free") return _services.free(_authorization, flags());
    if (command == "wait") std::getline(std::cin, line);
    if (command == "hold") waitForReaderToGo();
    return errAuthorizationSuccess;
  }

 private:
  platform::Linux::DirectCall _blockingCall;
  ErrorLog _log;
  platform::Linux::AuthorizationServices _services{_blockingCall, _log};
  AuthorizationRef _authorization = 0;
};

}  // namespace

int main(int /*count*/, char** arguments) {
  Client client;
  for (char** argument = arguments + 1; *argument != nullptr;) {
    const std::string command = *argument++;
    const AuthorizationStatus status = client.perform(command, argument);
    // In one piece, since the broker writes to the same place.
    std::cerr << command + " answers " + std::to_string(status) + "\n";
  }
  return 0;
}
