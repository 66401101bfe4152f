#include "platform/linux/SystemLog.h"

#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "foundation/text/UTF8.h"

namespace platform::Linux {

namespace {

// A terminal obeys the bytes below 32, 127, and the characters U+0080 to U+009F, which begin with 0xC2 in UTF-8.
std::size_t lengthOfControl(std::string_view text) {
  const auto byte = static_cast<unsigned char>(text[0]);
  if (byte < 0x20 || byte == 0x7F) return 1;
  const bool isSecondSet = byte == 0xC2 && text.size() > 1 && static_cast<unsigned char>(text[1]) < 0xA0;
  return isSecondSet ? 2 : 0;
}

void appendEscaped(std::string& line, std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const unsigned char byte : bytes) line.append({'\\', 'x', digits[byte >> 4U], digits[byte & 15U]});
}

std::string harmless(std::string_view text) {
  const bool isText = foundation::isValidUTF8(text);
  std::string line;
  while (!text.empty()) {
    const bool isForeign = !isText && static_cast<unsigned char>(text[0]) >= 0x80;
    const std::size_t control = isForeign ? 1 : lengthOfControl(text);
    if (control > 0)
      appendEscaped(line, text.substr(0, control));
    else
      line += text[0];
    text.remove_prefix(control > 0 ? control : 1);
  }
  return line;
}

// Writes to standard error without being killed when it is a pipe whose reader has gone: the program that started this one
// may well have quit.
void writeToStandardError(const std::string& line) {
  sigset_t pipe;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  if (written < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
    const timespec noTime{};
    sigtimedwait(&pipe, nullptr, &noTime);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

SystemLog::SystemLog(std::string ident) : _ident(std::move(ident)) { ::openlog(_ident.c_str(), LOG_PID, LOG_USER); }

SystemLog::~SystemLog() { ::closelog(); }

void SystemLog::log(std::string_view line) {
  const std::string text = harmless(line);
  ::syslog(LOG_USER | LOG_NOTICE, "%s", text.c_str());
  writeToStandardError(_ident + ": " + text + "\n");
}

}  // namespace platform::Linux
