#pragma once
// The effects of a job outside the program. `JobOperations` performs them; an implementation that only takes notes lets
// tests try the handling of instructions with any input and without effect.
#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "privileged/tool/Request.h"

namespace AssistantTool {

// A file that the unprivileged caller made for an answer: the result file, or the output file.
class Answer {
 public:
  Answer() = default;
  virtual ~Answer() = default;
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  // Writes the whole answer. Throws Failure.
  virtual void write(std::string_view text) const = 0;
  // Device and inode, which tell the file from every other.
  [[nodiscard]] virtual std::pair<dev_t, ino_t> identity() const = 0;
};

class Operations {
 public:
  Operations() = default;
  virtual ~Operations() = default;
  Operations(const Operations&) = delete;
  Operations& operator=(const Operations&) = delete;

  // Each throws Failure with everything as it was.
  virtual std::unique_ptr<Answer> answerAt(const std::string& path, const PathWalk& walk) = 0;
  virtual Outcome trashFile(const Request& request) = 0;
  virtual Outcome removeFile(const Request& request) = 0;
  virtual Outcome copyFile(const Request& request) = 0;
  virtual Outcome moveFile(const Request& request) = 0;
  virtual Outcome replaceItem(const Request& request) = 0;
  virtual Outcome upgradeServer(const Request& request) = 0;
  // `level` as in syslog.
  virtual void log(int level, const std::string& line) = 0;
};

class JobOperations final : public Operations {
 public:
  std::unique_ptr<Answer> answerAt(const std::string& path, const PathWalk& walk) override;
  Outcome trashFile(const Request& request) override;
  Outcome removeFile(const Request& request) override;
  Outcome copyFile(const Request& request) override;
  Outcome moveFile(const Request& request) override;
  Outcome replaceItem(const Request& request) override;
  Outcome upgradeServer(const Request& request) override;
  void log(int level, const std::string& line) override;
};

}  // namespace AssistantTool
