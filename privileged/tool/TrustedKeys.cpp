#include "privileged/tool/TrustedKeys.h"

#include <algorithm>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Manifest.h"
#include "privileged/tool/TrustedFile.h"

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
  TrustFolder(const std::string& path, uid_t owner) : _path(path), _folder(path, owner) {}

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
    if (!_folder.exists()) return names;
    for (auto& entry : entriesOf(_folder.descriptor())) names.push_back(std::move(entry.name));
    std::ranges::sort(names);
    return names;
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
    const auto contents = _folder.contents(name, maximum);
    if (!contents) throw Failure("missing: " + printable(path));
    try {
      return parse(*contents);
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
  TrustedFolder _folder;
};

}  // namespace

bool TrustedKey::maySign(std::string_view identifier) const {
  return identifiers.empty() || std::ranges::find(identifiers, identifier) != identifiers.end();
}

std::vector<TrustedKey> trustedKeys(const std::string& folder, uid_t owner) { return TrustFolder(folder, owner).keys(); }

}  // namespace AssistantTool
