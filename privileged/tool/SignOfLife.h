#pragma once
// The signs by which the program that waits for a job tells a long one from a stuck one: the times of the job's result file
// (see protocol/ToolProtocol.h). Without a SignsOfLife they go nowhere. One thread.
#include <chrono>

#include "privileged/tool/Answer.h"

namespace AssistantTool {

// Sends the signs to the result file for as long as it lives, one at a time, those of moving things once in `interval`.
class SignsOfLife {
 public:
  explicit SignsOfLife(const Answer& result, std::chrono::milliseconds interval = std::chrono::seconds(1));
  ~SignsOfLife();
  SignsOfLife(const SignsOfLife&) = delete;
  SignsOfLife& operator=(const SignsOfLife&) = delete;
};

// Bytes or an entry have moved or gone, or another step is done. Costs a look at the clock, and about once a second a
// system call.
void giveSignOfLife();

// fsync() and syncfs(): nothing can be seen of them while they last, and they take as long as the disk needs.
int syncDescriptor(int descriptor);
int syncFileSystemOf(int descriptor);

}  // namespace AssistantTool
