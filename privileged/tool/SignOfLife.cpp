#include "privileged/tool/SignOfLife.h"

#include <unistd.h>

#include <cerrno>

namespace AssistantTool {
namespace {

using std::chrono::steady_clock;

const Answer* receiver = nullptr;
std::chrono::milliseconds least;  // between two signs
steady_clock::time_point last;

void send(Answer::Sign sign) {
  if (receiver == nullptr) return;
  const int error = errno;
  receiver->give(sign);
  last = steady_clock::now();
  errno = error;
}

template <typename Call>
int longCall(Call call) {
  send(Answer::Sign::longCall);
  const int result = call();
  send(Answer::Sign::life);
  return result;
}

}  // namespace

SignsOfLife::SignsOfLife(const Answer& result, std::chrono::milliseconds interval) {
  receiver = &result;
  least = interval;
  last = steady_clock::now();
}

SignsOfLife::~SignsOfLife() { receiver = nullptr; }

void giveSignOfLife() {
  if (receiver != nullptr && steady_clock::now() - last >= least) send(Answer::Sign::life);
}

int syncDescriptor(int descriptor) {
  return longCall([descriptor] { return ::fsync(descriptor); });
}

int syncFileSystemOf(int descriptor) {
  return longCall([descriptor] { return ::syncfs(descriptor); });
}

}  // namespace AssistantTool
