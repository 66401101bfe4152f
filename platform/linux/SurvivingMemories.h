#pragma once
// Memory that outlives its process: files in the user's runtime folder (XDG_RUNTIME_DIR), or in /dev/shm for users who have
// none, locked by the process whose memory they are. Any thread.
//
// A file whose lock nobody holds belonged to a process that died. Only the user's own files are looked at, and only those
// of the same program: the name of a file holds the name that was asked for and a number made from the path of the
// executable. One of another size is of another version, which nobody can read any more; it is removed.
#include "platform/LoggingHost.h"

namespace platform::Linux {

class SurvivingMemories final : public platform::SurvivingMemories {
 public:
  SurvivingMemories();
  explicit SurvivingMemories(std::string folder);
  SurvivingMemories(std::string folder, std::string_view executable);

  std::unique_ptr<SurvivingMemory> make(const std::string& name, std::size_t size) override;
  std::vector<std::unique_ptr<SurvivingMemory>> orphans(const std::string& name, std::size_t size) override;

 private:
  [[nodiscard]] std::string prefix(const std::string& name) const;

  const std::string _folder;
  const std::string _program;
};

}  // namespace platform::Linux
