#include "privileged/tool/TrustedKeys.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "privileged/tool/BundleItem.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/FileDescriptor.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Manifest.h"

namespace AssistantTool {
namespace {

constexpr std::string_view keyEnding = ".pub";
constexpr std::string_view identifiersEnding = ".identifiers";
constexpr std::size_t maximumListBytes = std::size_t{64} << 10;
constexpr std::size_t maximumKeys = 256;

std::vector<std::string> identifiersIn(std::string_view list) {
  std::vector<std::string> identifiers;
  while (!list.empty()) {
    const auto end = std::min(list.find('\n'), list.size());
    const auto line = list.substr(0, end);
    list.remove_prefix(std::min(list.size(), end + 1));
    if (line.empty() || line.starts_with('#')) continue;
    if (!isBundleIdentifier(line)) throw Failure("\"" + printable(line) + "\" is not a bundle identifier");
    identifiers.emplace_back(line);
  }
  if (identifiers.empty()) throw Failure("it lists no bundle identifier");
  return identifiers;
}

class TrustFolder {
 public:
  TrustFolder(const std::string& path, uid_t owner)
      : _path(path), _owner(owner), _folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    if (!_folder && errno == ENOENT) return;
    if (!_folder) failWithSystemError("cannot open " + path);
    requireOwned(_folder.get(), path);
    // Everybody who can write the folder above could take this one away, and all keys with it.
    const FileDescriptor above(::openat(_folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    requireOwned(above.get(), "the folder above " + path);
  }

  [[nodiscard]] std::vector<TrustedKey> keys() const {
    std::vector<TrustedKey> keys;
    const auto names = sortedNames();
    for (const std::string_view name : names) {
      if (name.ends_with(identifiersEnding)) requireKeyOf(name, names);
      if (name.ends_with(keyEnding)) keys.push_back(keyNamed(name.substr(0, name.size() - keyEnding.size()), names));
    }
    if (keys.size() > maximumKeys) throw Failure("too many keys in " + _path);
    return keys;
  }

 private:
  [[nodiscard]] std::vector<std::string> sortedNames() const {
    std::vector<std::string> names;
    if (!_folder) return names;
    for (auto& entry : entriesOf(_folder.get())) names.push_back(std::move(entry.name));
    std::ranges::sort(names);
    return names;
  }

  void requireOwned(int item, const std::string& path) const {
    struct stat status {};
    if (::fstat(item, &status) != 0) failWithSystemError("cannot look at " + path);
    if (status.st_uid != _owner) throw Failure("not root's: " + path);
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) throw Failure("others can write " + path);
  }

  void requireKeyOf(std::string_view list, const std::vector<std::string>& names) const {
    const auto key = std::string(list.substr(0, list.size() - identifiersEnding.size())) + std::string(keyEnding);
    if (std::ranges::binary_search(names, key)) return;
    throw Failure(_path + "/" + printable(list) + " belongs to no key");
  }

  // `parse` of the contents of the file `name`; what is wrong with it is told with its path.
  template <typename Parse>
  [[nodiscard]] auto read(const std::string& name, std::size_t maximum, const Parse& parse) const {
    const auto path = _path + "/" + name;
    const FileDescriptor file(::openat(_folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) failWithSystemError("cannot open " + printable(path));
    if (!S_ISREG(status.st_mode)) throw Failure("not a file: " + printable(path));
    requireOwned(file.get(), printable(path));
    const auto contents = contentsOfFile(file.get(), maximum, path);
    try {
      return parse(contents);
    } catch (const Failure& failure) {
      throw Failure(printable(path) + ": " + failure.what());
    }
  }

  [[nodiscard]] TrustedKey keyNamed(std::string_view name, const std::vector<std::string>& names) const {
    TrustedKey trusted{.name = std::string(name), .key = {}, .identifiers = {}};
    const auto list = trusted.name + std::string(identifiersEnding);
    trusted.key = read(trusted.name + std::string(keyEnding), Minisign::maximumMinisignBytes, Minisign::publicKeyOfFile);
    if (std::ranges::binary_search(names, list)) trusted.identifiers = read(list, maximumListBytes, identifiersIn);
    return trusted;
  }

  std::string _path;
  uid_t _owner;
  FileDescriptor _folder;
};

}  // namespace

bool TrustedKey::maySign(std::string_view identifier) const {
  return identifiers.empty() || std::ranges::find(identifiers, identifier) != identifiers.end();
}

std::vector<TrustedKey> trustedKeys(const std::string& folder, uid_t owner) { return TrustFolder(folder, owner).keys(); }

}  // namespace AssistantTool
