#pragma once
// An answer on disk.
#include <string>
#include <string_view>

#include "posix/Descriptor.h"
#include "privileged/tool/Answer.h"
#include "privileged/tool/PathWalk.h"

namespace AssistantTool {

class AnswerFile final : public Answer {
 public:
  // Throws Failure unless `path` is an empty regular file, no link, with one name only, that belongs to the invoking user
  // and lies in a folder which nobody but root and that user can enter or write.
  AnswerFile(const std::string& path, const PathWalk& walk);

  // Writes the whole answer. Throws Failure, also when the file has changed its nature meanwhile.
  void write(std::string_view text) const override;
  void give(Sign sign) const override;
  [[nodiscard]] std::pair<dev_t, ino_t> identity() const override;

 private:
  posix::Descriptor _file;
  uid_t _user;
};

}  // namespace AssistantTool
