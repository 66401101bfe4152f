#pragma once
// A file that the unprivileged caller made for an answer: the result file, or the output file.
#include <sys/types.h>

#include <string_view>
#include <utility>

namespace AssistantTool {

class Answer {
 public:
  Answer() = default;
  virtual ~Answer() = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  // Writes the whole answer. Throws Failure.
  virtual void write(std::string_view text) const = 0;
  enum class Sign { life, longCall };
  // Tells whoever waits for the answer that the job goes on; without effect if that is impossible.
  virtual void give(Sign /*sign*/) const {}
  // Device and inode, which tell the file from every other.
  [[nodiscard]] virtual std::pair<dev_t, ino_t> identity() const = 0;
};

}  // namespace AssistantTool
