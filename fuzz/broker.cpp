// No message ends the broker or gives anybody anything that the policy has not granted.
//
// The broker's own service answers over a socket pair; this side writes the messages byte by byte. An input is a row of
// records: a kind, what the kind needs, and for a call the length and the bytes of its body. Raw bytes, which need not
// be a message, are the last record: after them a reader may wait for the rest of a hundred megabytes.
#include <sys/socket.h>
#include <sys/uio.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <systemd/sd-id128.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Target.h"
#include "platform/linux/authorizationd/Service.h"
#include "protocol/Broker.h"

namespace {

using namespace platform;
using namespace platform::Linux::authorizationd;

// The bytes of an input, in order; zeros after the end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : _rest(fuzz::text(data, size)) {}
  [[nodiscard]] bool empty() const { return _rest.empty(); }
  std::uint8_t byte() {
    const std::string one = bytes(1);
    return one.empty() ? 0 : static_cast<std::uint8_t>(one.front());
  }
  std::string rest() { return bytes(_rest.size()); }
  std::string bytes(std::size_t length) {
    std::string taken(_rest.substr(0, length));
    _rest.remove_prefix(taken.size());
    return taken;
  }

 private:
  std::string_view _rest;
};

// The wire form of messages, little-endian.
class Marshaller {
 public:
  void align(std::size_t to) { out.resize((out.size() + to - 1) / to * to); }
  void byte(std::uint8_t value) { out.push_back(static_cast<char>(value)); }
  void number(std::uint32_t value) {
    align(sizeof value);
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void handle(Handle value) {
    align(sizeof value);
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void text(const std::string& value) {
    number(static_cast<std::uint32_t>(value.size()));
    out += value;
    byte(0);
  }
  void signature(const std::string& value) {
    byte(static_cast<std::uint8_t>(value.size()));
    out += value;
    byte(0);
  }
  void field(std::uint8_t code, char type, const std::string& value) {
    align(8);
    byte(code);
    signature({type});
    type == 'g' ? signature(value) : text(value);
  }
  void countField(std::uint8_t code, std::uint32_t value) {
    align(8);
    byte(code);
    signature("u");
    number(value);
  }
  std::string out;
};

struct Message {
  std::uint8_t type = 1;  // a call; 4 is a signal
  std::string path = protocol::brokerObjectPath;
  std::string interface = protocol::brokerInterface;
  std::string member;
  std::string sender;
  std::string signature;
  std::string body;
  bool hasDescriptor = false;
};

std::string wireForm(const Message& message, std::uint32_t serial) {
  Marshaller fields;
  fields.field(1, 'o', message.path);
  fields.field(2, 's', message.interface);
  fields.field(3, 's', message.member);
  fields.field(7, 's', message.sender);
  if (!message.signature.empty()) fields.field(8, 'g', message.signature);
  if (message.hasDescriptor) fields.countField(9, 1);
  Marshaller whole;
  for (const std::uint8_t byte : {std::uint8_t{'l'}, message.type, std::uint8_t{0}, std::uint8_t{1}}) whole.byte(byte);
  whole.number(static_cast<std::uint32_t>(message.body.size()));
  whole.number(serial);
  whole.number(static_cast<std::uint32_t>(fields.out.size()));
  whole.out += fields.out;  // begins at 16, so its alignment holds
  whole.align(8);
  return whole.out + message.body;
}

// Answers as the input says: at once, or when the input comes to it.
class InputPolicy final : public Policy {
 public:
  explicit InputPolicy(Input& input) : _input(input) {}
  [[nodiscard]] bool serves(uid_t uid) const override { return uid != 3; }
  std::unique_ptr<Question> ask(const Caller& /*caller*/, Right /*right*/, bool /*interaction*/, Answer answer) override {
    const auto kind = _input.byte() % 4;
    if (kind < 2) {
      give(answer, kind == 0 ? errAuthorizationSuccess : errAuthorizationDenied);
      return nullptr;
    }
    auto question = std::make_unique<OpenQuestion>(*this, std::move(answer));
    _open.push_back(question.get());
    return question;
  }
  void answerOldest(AuthorizationStatus status) {
    if (_open.empty()) return;
    const Answer answer = std::move(_open.front()->answer);
    give(answer, status);
  }
  bool hasGranted = false;

 private:
  struct OpenQuestion final : Question {
    OpenQuestion(InputPolicy& itsPolicy, Answer itsAnswer) : policy(itsPolicy), answer(std::move(itsAnswer)) {}
    ~OpenQuestion() override { std::erase(policy._open, this); }
    InputPolicy& policy;
    Answer answer;
  };
  void give(const Answer& answer, AuthorizationStatus status) {
    if (status == errAuthorizationSuccess) hasGranted = true;
    answer(status);
  }
  Input& _input;
  std::vector<OpenQuestion*> _open;
};

// The last part of a sender's name is its user: three of them, one of whom is not served.
std::optional<Caller> callerInName(sd_bus* /*bus*/, sd_bus_message* call) {
  const char* name = sd_bus_message_get_sender(call);
  if (name == nullptr || *name != ':') return std::nullopt;
  return Caller{name, static_cast<uid_t>(name[std::strlen(name) - 1] - '0')};
}

// One descriptor of two passes as a tool; it is never a program.
std::string isTool(int program) { return program % 2 == 0 ? "" : "not a tool"; }

class Broker {
 public:
  explicit Broker(Input& input) : policy(input), _input(input) {
    std::array<int, 2> ends{};
    fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0, "a socket");
    _far = ends[0];
    sd_id128_t identity{};
    sd_id128_randomize(&identity);
    sd_event_new(&_loop);
    sd_bus_new(&_bus);
    sd_bus_set_fd(_bus, ends[1], ends[1]);
    sd_bus_set_server(_bus, 1, identity);
    sd_bus_set_anonymous(_bus, 1);
    sd_bus_negotiate_fds(_bus, 1);
    fuzz::require(sd_bus_start(_bus) >= 0 && sd_bus_attach_event(_bus, _loop, 0) >= 0, "a bus");
    _service = std::make_unique<Service>(
        _bus, _loop, Service::Parts{.policy = policy, .journal = _journal, .checkTool = isTool, .identify = callerInName},
        Lifetimes{});
    fuzz::require(_service->publish() >= 0, "an object");
    constexpr char greeting[] = "\0AUTH ANONYMOUS\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n";
    write({greeting, sizeof greeting - 1}, false);
    settle();
    fuzz::require(sd_bus_is_ready(_bus) > 0, "a bus that is ready");
    forget();
  }
  ~Broker() {
    _service.reset();
    sd_bus_flush_close_unref(_bus);
    sd_event_unref(_loop);
    ::close(_far);
  }
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  void send(const Message& message) {
    write(wireForm(message, ++_serial), message.hasDescriptor);
    settle();
    readAnswers();
  }
  void sendRaw(const std::string& bytes) {
    write(bytes, false);
    settle();
    readAnswers();
  }
  void answerQuestion(AuthorizationStatus status) {
    policy.answerOldest(status);
    settle();
    readAnswers();
  }
  [[nodiscard]] bool isOpen() const { return sd_bus_is_open(_bus) > 0; }
  Handle someHandle() {
    const auto choice = _input.byte();
    return _handles.empty() ? choice : _handles[choice % _handles.size()];
  }
  std::string someForm() { return _forms.empty() ? _input.bytes(32) : _forms[_input.byte() % _forms.size()]; }

  InputPolicy policy;

 private:
  void write(const std::string& bytes, bool withDescriptor) const {
    iovec part{.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (withDescriptor) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      cmsghdr* header = CMSG_FIRSTHDR(&message);
      header->cmsg_level = SOL_SOCKET;
      header->cmsg_type = SCM_RIGHTS;
      header->cmsg_len = CMSG_LEN(sizeof(int));
      std::memcpy(CMSG_DATA(header), &_far, sizeof _far);  // never a program
    }
    ::sendmsg(_far, &message, MSG_NOSIGNAL);
  }
  void settle() {
    while (sd_event_run(_loop, 0) > 0) continue;
  }
  void forget() const {
    std::array<char, 65536> buffer;
    while (::read(_far, buffer.data(), buffer.size()) > 0) continue;
  }
  // Keeps what the answers give to callers: a handle, a form, a status.
  void readAnswers() {
    // One for all messages: clearing 64 KB for each of them takes a good part of the search.
    static std::array<char, 65536> buffer;
    const auto length = ::read(_far, buffer.data(), buffer.size());
    std::string_view rest(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    while (rest.size() >= 16) {
      std::uint32_t body = 0;
      std::uint32_t fields = 0;
      std::memcpy(&body, rest.data() + 4, sizeof body);
      std::memcpy(&fields, rest.data() + 12, sizeof fields);
      const std::size_t header = (16 + std::size_t{fields} + 7) / 8 * 8;
      if (rest.size() < header + body) return;
      keep(rest[1], rest.substr(header, body));
      rest.remove_prefix(header + body);
    }
  }
  void keep(char type, std::string_view body) {
    constexpr char methodReturn = 2;
    if (type != methodReturn) return;
    if (body.size() == sizeof(Handle)) std::memcpy(&_handles.emplace_back(), body.data(), sizeof(Handle));
    if (body.size() == 36) _forms.emplace_back(body.substr(4));
    if (body.size() != sizeof(std::uint32_t)) return;
    std::uint32_t status = 0;
    std::memcpy(&status, body.data(), sizeof status);
    if (wasCopy) fuzz::require(status != 0 || policy.hasGranted, "no right without the policy");
    fuzz::require(!wasExecute, "only programs are run");
  }

 public:
  bool wasCopy = false;
  bool wasExecute = false;

 private:
  Input& _input;
  // Nobody listens there.
  Journal _journal{{.journal = "/nowhere/journal", .log = "/nowhere/log"}, -1, [] { return std::chrono::microseconds(0); }};
  int _far = -1;
  sd_event* _loop = nullptr;
  sd_bus* _bus = nullptr;
  std::unique_ptr<Service> _service;
  std::uint32_t _serial = 0;
  std::vector<Handle> _handles;
  std::vector<std::string> _forms;
};

namespace brokerMethod = protocol::brokerMethod;
// The order is that of the records' kinds.
constexpr std::array methods{brokerMethod::create,
                             brokerMethod::makeExternalForm,
                             brokerMethod::createFromExternalForm,
                             brokerMethod::copyRights,
                             brokerMethod::free,
                             brokerMethod::executeWithPrivileges,
                             brokerMethod::makeExternalFormFor,
                             brokerMethod::isAsking};

// A call of the right form, with values of the input or of earlier answers.
void fillBody(Message& call, std::size_t method, Input& input, Broker& broker) {
  Marshaller body;
  const std::string kinds = methods[method].takes;
  if (kinds == "ay") {
    std::string form = broker.someForm();
    const auto change = input.byte();
    if (!form.empty() && change < form.size()) form[change] ^= 1;
    body.number(static_cast<std::uint32_t>(form.size()));
    body.out += form;
  } else {
    for (const char kind : kinds) {
      if (kind == 't') body.handle(broker.someHandle());
      if (kind == 's') body.text(input.byte() % 2 == 0 ? std::string(protocol::adminRight) : "other");
      if (kind == 'u') body.number(input.byte());
      if (kind == 'h') body.number(input.byte() % 2);
    }
  }
  call.signature = kinds;
  call.body = body.out;
  call.hasDescriptor = kinds.find('h') != std::string::npos;
}

void sendRecord(Input& input, Broker& broker) {
  enum Kind : std::uint8_t { Wrong = 6, Gone = 7, Yes = 8, No = 9, Raw = 10, ForProcess = 11, Count = 13 };
  const auto kind = input.byte() % Count;
  Message message;
  message.sender = ":1." + std::to_string(input.byte() % 6 + 1);
  broker.wasCopy = kind == 3;
  broker.wasExecute = kind == 5;
  if (kind == Yes || kind == No) {
    broker.wasCopy = true;
    return broker.answerQuestion(kind == Yes ? errAuthorizationSuccess : errAuthorizationDenied);
  }
  if (kind == Raw) return broker.sendRaw(input.rest());
  if (kind == Gone) {
    Marshaller names;
    for (const std::string& name : {message.sender, message.sender, std::string()}) names.text(name);
    message = {.type = 4,
               .path = "/org/freedesktop/DBus",
               .interface = "org.freedesktop.DBus",
               .member = "NameOwnerChanged",
               .sender = "org.freedesktop.DBus",
               .signature = "sss",
               .body = names.out};
  } else if (kind == Wrong) {
    message.member = methods[input.byte() % methods.size()].name;
    message.signature = input.bytes(input.byte() % 8);
    message.body = input.bytes(input.byte());
  } else {
    const std::size_t method = kind >= ForProcess ? kind - ForProcess + Wrong : kind;
    message.member = methods[method].name;
    fillBody(message, method, input, broker);
  }
  broker.send(message);
}

bool makeQuiet() {
  sigset_t waitedFor;
  sigemptyset(&waitedFor);
  sigaddset(&waitedFor, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &waitedFor, nullptr);
  return std::freopen("/dev/null", "w", stdout) != nullptr;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = makeQuiet();
  fuzz::require(quiet, "a quiet process");
  Input input(data, size);
  Broker broker(input);
  for (int i = 0; i < 64 && !input.empty() && broker.isOpen(); ++i) sendRecord(input, broker);
  return 0;
}
