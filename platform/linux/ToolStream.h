#pragma once
// The socket to a tool that runs, for a program that does not wait for ever. Main thread; its calls run through the
// BlockingCall.
#include <chrono>
#include <functional>
#include <string>

#include "platform/Authorization.h"
#include "platform/linux/BlockingCall.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

class ToolStream final : public ByteStream {
 public:
  // `onToolRuns` may be empty. A call that is given up writes why to `cause`. All references outlive the stream.
  ToolStream(posix::Descriptor socket, BlockingCall& blockingCall, const std::function<void(bool)>& onToolRuns,
             std::chrono::milliseconds longestSilence, std::string& cause);
  ~ToolStream() override;
  ToolStream(const ToolStream&) = delete;
  ToolStream& operator=(const ToolStream&) = delete;

  std::size_t write(const void* bytes, std::size_t length) override;
  std::size_t read(void* buffer, std::size_t capacity) override;
  void expectSignsOfLife(const std::string& path) override { _signs = path; }

 private:
  bool wait(short event);
  [[nodiscard]] std::size_t writeAll(const char* bytes, std::size_t length);
  ssize_t readSome(void* buffer, std::size_t capacity);

  posix::Descriptor _socket;
  BlockingCall& _blockingCall;
  const std::function<void(bool)>& _onToolRuns;
  std::chrono::milliseconds _longestSilence;
  std::string& _cause;
  std::string _signs;
};

}  // namespace platform::Linux
