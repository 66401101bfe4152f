#include "platform/linux/terminal/KeptVersions.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "platform/linux/Accounts.h"
#include "protocol/KeptBundles.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;

std::string ownStateFolder() {
  const char* state = std::getenv("XDG_STATE_HOME");
  return state != nullptr && *state == '/' ? state : homeFolder() + "/.local/state";
}

bool hasNote(const fs::path& folder, const char* note, const std::string& text) {
  std::error_code error;
  return fs::read_symlink(folder / note, error) == text && !error;
}

std::optional<std::string> bundleIn(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    if (entry->symlink_status(error).type() == fs::file_type::directory) return entry->path().string();
  return std::nullopt;
}

std::vector<fs::path> foldersIn(const fs::path& store) {
  std::vector<fs::path> folders;
  std::error_code error;
  for (fs::directory_iterator entry(store, error), end; !error && entry != end; entry.increment(error))
    if (entry->path().filename().string().front() != '.') folders.push_back(entry->path());
  std::ranges::sort(folders, std::ranges::greater());
  return folders;
}

// As the tool notes it: without links.
fs::path folderOf(const std::string& installed) {
  std::error_code error;
  const auto folder = fs::path(installed).parent_path();
  auto plain = fs::canonical(folder, error);
  return error ? folder : plain;
}

}  // namespace

std::vector<std::string> keptBundlesOf(const std::string& installed, const std::string& identifier) {
  std::vector<std::string> bundles;
  const auto place = folderOf(installed).string();
  for (const std::string& state : {std::string("/var/lib"), ownStateFolder()}) {
    for (const auto& folder : foldersIn(fs::path(state) / "kelto" / protocol::keptFolder)) {
      if (!hasNote(folder, protocol::keptPlaceNote, place) || !hasNote(folder, protocol::keptApplicationNote, identifier))
        continue;
      if (auto bundle = bundleIn(folder)) bundles.push_back(std::move(*bundle));
    }
  }
  return bundles;
}

}  // namespace platform::Linux
