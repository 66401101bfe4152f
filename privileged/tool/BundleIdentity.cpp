#include "privileged/tool/BundleIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <compare>

#include "posix/Descriptor.h"
#include "privileged/tool/BundleItem.h"
#include "privileged/tool/BundleVersion.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/InformationList.h"
#include "privileged/tool/Manifest.h"

namespace AssistantTool {
namespace {

// `read` of the contents of a file in the bundle; nullopt when the file is missing or tells nothing.
template <typename Read>
auto read(int bundle, const char* path, std::size_t maximum, const Read& read)
    -> std::optional<decltype(read(std::string()))> {
  try {
    const BundleItem file(bundle, path);
    if (file.kind() == EntryKind::file) return read(contentsOfFile(file.descriptor(), maximum, path));
  } catch (const Failure&) {
    // An installed bundle that is broken must not keep a good one from replacing it.
  }
  return std::nullopt;
}

std::optional<BundleIdentity> signedIdentityOf(int bundle) {
  const auto manifest = read(bundle, manifestPath, maximumManifestBytes, manifestOf);
  if (!manifest) return std::nullopt;
  BundleIdentity identity{.identifier = manifest->identifier, .version = manifest->version, .isSigned = true, .key = {}};
  const auto signature = read(bundle, signaturePath, Minisign::maximumMinisignBytes, Minisign::signatureOfFile);
  if (signature) identity.key = signature->identifier;
  return identity;
}

BundleIdentity unsignedIdentityOf(int bundle) {
  const auto information = read(bundle, informationListPath, maximumInformationListBytes, bundleInformationOf);
  BundleIdentity identity;
  if (!information) return identity;
  const auto identifier = information->identifier.value_or("");
  const auto version = information->version.value_or("");
  if (isBundleIdentifier(identifier)) identity.identifier = identifier;
  if (isBundleVersion(version)) identity.version = version;
  return identity;
}

bool isEitherSigned(const BundleIdentity& one, const BundleIdentity& other) { return one.isSigned || other.isSigned; }

std::string known(const std::string& text) { return text.empty() ? "unknown" : text; }

}  // namespace

std::optional<BundleIdentity> identityOf(int parent, const std::string& name) {
  struct stat status {};
  const bool exists = ::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno == ENOENT) return std::nullopt;
  if (!exists) failWithSystemError("cannot look at " + printable(name));
  if (!S_ISDIR(status.st_mode)) return BundleIdentity{};
  const auto bundle = openFolderIn(parent, name);
  if (!bundle) failWithSystemError("cannot open " + printable(name));
  const auto identity = signedIdentityOf(bundle.get());
  return identity ? identity : unsignedIdentityOf(bundle.get());
}

std::optional<BundleIdentity> toldIdentityOf(int parent, const std::string& name) {
  try {
    return identityOf(parent, name);
  } catch (const Failure&) {
    return BundleIdentity();
  }
}

void refuseForeignIdentifier(const BundleIdentity& replacement, const BundleIdentity& installed) {
  if (!isEitherSigned(replacement, installed)) return;
  // The signed one of the two has an identifier, so two that are unknown do not meet here.
  if (replacement.identifier == installed.identifier) return;
  throw Failure("another bundle is installed: " + known(installed.identifier) + " instead of " +
                known(replacement.identifier));
}

void refuseDowngrade(const BundleIdentity& replacement, const BundleIdentity& installed) {
  if (!isEitherSigned(replacement, installed)) return;
  const auto order = compareVersions(replacement.version, installed.version);
  if (order && std::is_gteq(*order)) return;
  const auto versions = known(replacement.version) + " over the installed " + known(installed.version);
  throw Failure((order ? "a downgrade is not allowed: version " : "cannot compare the versions: ") + versions);
}

void refuseOtherKey(const BundleIdentity& replacement, const std::optional<Minisign::PublicKey>& previousKey,
                    const BundleIdentity& installed) {
  if (!replacement.key || !installed.key || *replacement.key == *installed.key) return;
  if (previousKey && previousKey->identifier == *installed.key) return;
  throw Failure("the installed bundle is signed with key " + Minisign::textOf(*installed.key) +
                ", which the manifest does not name as the previous one");
}

}  // namespace AssistantTool
