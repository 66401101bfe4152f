#pragma once
// A file that the unprivileged caller made for an answer: the result file, or the output file.
#include <string>
#include <string_view>

#include "privileged/tool/FileDescriptor.h"
#include "privileged/tool/PathWalk.h"

namespace AssistantTool {

class AnswerFile {
 public:
  // Throws Failure unless `path` is an empty regular file, no link, with one name only, that belongs to the invoking user.
  AnswerFile(const std::string& path, const PathWalk& walk);

  // Writes the whole answer. Throws Failure, also when the file has changed its nature meanwhile.
  void write(std::string_view text) const;
  [[nodiscard]] bool isSameFileAs(const AnswerFile& other) const;

 private:
  FileDescriptor file_;
  uid_t user_;
};

}  // namespace AssistantTool
