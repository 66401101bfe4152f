#include "privileged/tool/BundleVerification.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/Descriptor.h"
#include "privileged/tool/BundleItem.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

// The two files that the manifest does not list have no mode in it either.
constexpr mode_t refusedModes = S_ISUID | S_ISGID | S_ISVTX | S_IWOTH;

std::string readSignatureFile(int bundle, const char* path, std::size_t maximum) {
  const BundleItem item(bundle, path);
  if (item.kind() != EntryKind::file) throw Failure(std::string("not a file: ") + path);
  if ((item.mode() & refusedModes) != 0) throw Failure(std::string("others can write ") + path);
  return contentsOfFile(item.descriptor(), maximum, path);
}

// The trusted keys that made the signature: several, when one is there under two names with different lists.
std::vector<TrustedKey> signersOf(const std::string& bytes, const Minisign::Signature& signature,
                                  const std::vector<TrustedKey>& keys) {
  std::vector<TrustedKey> signers;
  std::optional<std::string> fault;
  for (const auto& trusted : keys) {
    if (trusted.key.identifier != signature.identifier) continue;
    const auto found = Minisign::faultOf(signature, trusted.key, bytes);
    if (found) {
      fault = found;
    } else {
      signers.push_back(trusted);
    }
  }
  if (!signers.empty()) return signers;
  if (fault) throw Failure("the bundle's manifest: " + *fault);
  throw Failure("the bundle is signed with key " + Minisign::textOf(signature.identifier) + ", which is not trusted");
}

const TrustedKey& signerFor(const std::string& identifier, const std::vector<TrustedKey>& signers) {
  for (const auto& signer : signers) {
    if (signer.maySign(identifier)) return signer;
  }
  throw Failure("the key " + printable(signers.front().name) + " may not sign " + identifier);
}

void refuseUnlisted(const BundleItem& folder, const Manifest& manifest) {
  for (const auto& path : folder.contents()) {
    if (manifest.find(path) != nullptr || path == manifestPath || path == signaturePath) continue;
    throw Failure("not in the manifest: " + printable(path));
  }
}

void verifyEntry(int bundle, const Manifest& manifest, const ManifestEntry& entry) {
  const BundleItem item(bundle, entry.path);
  const auto path = printable(entry.path);
  if (item.kind() != entry.kind) {
    throw Failure("a " + std::string(nameOf(item.kind())) + " instead of a " + std::string(nameOf(entry.kind)) + ": " +
                  path);
  }
  if (item.mode() != entry.mode)
    throw Failure("the mode " + octal(item.mode()) + " instead of " + octal(entry.mode) + ": " + path);
  if (entry.kind == EntryKind::folder) return refuseUnlisted(item, manifest);
  if (item.size() != entry.size || item.digest() != entry.digest)
    throw Failure("the contents differ from the manifest: " + path);
  if (entry.kind == EntryKind::link) requireLinkInside(bundle, entry.path);
}

// The open folder of the item, when it is a bundle with a manifest.
posix::Descriptor openSignedBundle(const ItemInFolder& item) {
  struct stat status {};
  if (::fstatat(item.folder, item.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    failWithSystemError("cannot look at the new item");
  if (!S_ISDIR(status.st_mode)) return {};
  auto bundle = openFolderIn(item.folder, item.name);
  if (!bundle) failWithSystemError("cannot open the new item");
  return isMissing(bundle.get(), manifestPath) ? posix::Descriptor() : std::move(bundle);
}

void requireUnsignedAllowed(const SignaturePolicy& policy) {
  using Unsigned = SignaturePolicy::Unsigned;
  if (policy.unsignedBundles == Unsigned::allow) return;
  if (policy.unsignedBundles == Unsigned::refuse) throw Failure("the bundle is not signed");
  if (!policy.isUnsignedGranted) throw Failure("the bundle is not signed, and nobody granted that");
}

void refuseIntruder(const BundleIdentity& replacement, const BundleIdentity& installed, const SignaturePolicy& policy) {
  refuseForeignIdentifier(replacement, installed);
  if (!policy.areDowngradesAllowed) refuseDowngrade(replacement, installed);
}

}  // namespace

SignedManifest signedManifestOf(int bundle, const std::vector<TrustedKey>& keys) {
  const auto bytes = readSignatureFile(bundle, manifestPath, maximumManifestBytes);
  const auto signature =
      Minisign::signatureOfFile(readSignatureFile(bundle, signaturePath, Minisign::maximumMinisignBytes));
  const auto signers = signersOf(bytes, signature, keys);
  SignedManifest result{.manifest = manifestOf(bytes), .key = signature.identifier, .keyName = {}};
  result.keyName = signerFor(result.manifest.identifier, signers).name;
  return result;
}

void verifyEntries(int bundle, const Manifest& manifest) {
  for (const auto& entry : manifest.entries) verifyEntry(bundle, manifest, entry);
}

void verifyContents(int file, const Manifest& manifest, const std::string& path) {
  const auto* entry = manifest.find(path);
  if (entry == nullptr || entry->kind != EntryKind::file) throw Failure("not in the manifest: " + printable(path));
  struct stat status {};
  if (::fstat(file, &status) != 0 || ::lseek(file, 0, SEEK_SET) != 0)
    failWithSystemError("cannot look at " + printable(path));
  const bool isSame =
      static_cast<std::uint64_t>(status.st_size) == entry->size && digestOfFile(file, entry->size, path) == entry->digest;
  if (!isSame) throw Failure("the contents differ from the manifest: " + printable(path));
}

AcceptedBundle acceptBundle(const ItemInFolder& replacement, const std::optional<BundleIdentity>& installed,
                            const std::vector<TrustedKey>& keys, const SignaturePolicy& policy) {
  if (keys.empty())
    return {.identity = toldIdentityOf(replacement.folder, replacement.name).value_or(BundleIdentity()),
            .manifest = {},
            .folder = {}};
  auto bundle = openSignedBundle(replacement);
  if (!bundle) {
    requireUnsignedAllowed(policy);
    AcceptedBundle accepted{.identity = identityOf(replacement.folder, replacement.name).value_or(BundleIdentity()),
                            .manifest = {},
                            .folder = {}};
    if (installed) refuseIntruder(accepted.identity, *installed, policy);
    return accepted;
  }
  auto [manifest, key, keyName] = signedManifestOf(bundle.get(), keys);
  const BundleIdentity verified{
      .identifier = manifest.identifier, .version = manifest.version, .isSigned = true, .key = key};
  if (installed) refuseIntruder(verified, *installed, policy);
  if (installed) refuseOtherKey(verified, manifest.previousKey, *installed);
  return {.identity = verified, .manifest = std::move(manifest), .folder = std::move(bundle)};
}

BundleIdentity verifyReplacement(const ItemInFolder& replacement, const std::optional<BundleIdentity>& installed,
                                 const std::vector<TrustedKey>& keys, const SignaturePolicy& policy) {
  auto accepted = acceptBundle(replacement, installed, keys, policy);
  if (accepted.manifest) verifyEntries(accepted.folder.get(), *accepted.manifest);
  return std::move(accepted.identity);
}

}  // namespace AssistantTool
