#pragma once
// Compares a bundle with its publisher's signature: the signature of the manifest's bytes is checked before anything reads
// them, then the manifest, then each entry of the bundle against it. Nothing may be missing, nothing may be there besides,
// and links stay inside.
//
// A bundle is given by its open folder, and everything in it is opened from there; so it is the tool's own staged copy that
// is verified, whatever happens to the paths it came from. Not covered: owners, times, extended attributes, and the modes
// of the manifest and its signature. Every refusal is a Failure that names its cause.
#include <optional>
#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/BundleIdentity.h"
#include "privileged/tool/Manifest.h"
#include "privileged/tool/TrustedKeys.h"
#include "protocol/PolicyFile.h"

namespace AssistantTool {

struct SignedManifest {
  Manifest manifest;
  Minisign::KeyIdentifier key{};
  std::string keyName;  // the trusted key's
};

// The bundle's manifest after its signature has been verified by one of the keys, which may sign for its identifier.
SignedManifest signedManifestOf(int bundle, const std::vector<TrustedKey>& keys);

// Compares the bundle with its manifest.
void verifyEntries(int bundle, const Manifest& manifest);

// Compares an open file, a copy that was made of the entry `path`, with the manifest: contents only.
void verifyContents(int file, const Manifest& manifest, const std::string& path);

// The administrators' policy for signatures. It counts once there are keys.
struct SignaturePolicy {
  using Unsigned = protocol::Policy::Unsigned;
  Unsigned unsignedBundles = Unsigned::refuse;
  bool areDowngradesAllowed = false;
  // The caller's session holds the right that Unsigned::ask asks for.
  bool isUnsignedGranted = false;
};

// An item by the open folder that holds it; the folder may be opened with O_PATH.
struct ItemInFolder {
  int folder = -1;
  std::string name;
};

// A bundle that may be installed.
struct AcceptedBundle {
  BundleIdentity identity;  // that the manifest tells, or that an unsigned bundle claims
  std::optional<Manifest> manifest;
  posix::Descriptor folder;  // the bundle's, when there is a manifest
};

// Whether the administrators let `replacement` take the place of what is `installed`, where nothing need be: by its signed
// manifest, if it has one. Its entries have still to be compared with that. Without keys everything is accepted, without a
// manifest.
AcceptedBundle acceptBundle(const ItemInFolder& replacement, const std::optional<BundleIdentity>& installed,
                            const std::vector<TrustedKey>& keys, const SignaturePolicy& policy);

// The whole check of one replacement, after it was staged and before it is swapped with what is `installed`. The identity
// is the one that was verified, or the one that an unsigned bundle claims.
BundleIdentity verifyReplacement(const ItemInFolder& replacement, const std::optional<BundleIdentity>& installed,
                                 const std::vector<TrustedKey>& keys, const SignaturePolicy& policy);

}  // namespace AssistantTool
