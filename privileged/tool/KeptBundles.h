#pragma once
// The replaced bundles that root's tool keeps for a return (see protocol/KeptBundles.h), or a user's own tool for that
// user.
//
// Nobody but this process's user can write there, so a bundle stays as it was when it was replaced. It gets there by one
// rename where the store is on the same file system, else as a copy; in both cases its folder appears in one step, whole
// and on the disk. A job that is killed after its swap and before that step keeps nothing.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/PathWalk.h"
#include "privileged/tool/Request.h"

namespace AssistantTool {

class KeptBundles {
 public:
  // Each throws Failure when the folder cannot be used.
  static KeptBundles made();
  static std::optional<KeptBundles> existing();

  [[nodiscard]] int descriptor() const { return _folder.get(); }

  // Whether `source` was kept when it was replaced in the folder of `destination` as the application `identifier`.
  [[nodiscard]] bool holds(const Location& source, const Location& destination, const std::string& identifier) const;

  // Takes `replaced`, which was at `destination`, and removes the oldest ones of that application there beyond those that
  // the administrators want. Clears what killed jobs left. Throws Failure when it was not kept.
  void keep(const ItemInFolder& replaced, const Location& destination, const std::string& identifier,
            const Request& request) const;

  // Takes the folder that holds `source`, or held it, away at once; the function returned deletes it, and answers as
  // Staging::discard(). Throws Failure.
  [[nodiscard]] std::function<std::string()> takeAwayFolderOf(const Location& source) const;

 private:
  explicit KeptBundles(posix::Descriptor folder) : _folder(std::move(folder)) {}

  [[nodiscard]] std::vector<std::string> numbers() const;
  [[nodiscard]] Location locate(const std::string& number) const;
  void removeOldest(const Location& destination, const std::string& identifier, std::size_t count) const;

  posix::Descriptor _folder;
};

}  // namespace AssistantTool
