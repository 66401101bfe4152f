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

#include "privileged/tool/BundleIdentity.h"
#include "privileged/tool/Manifest.h"
#include "privileged/tool/TrustedKeys.h"

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

// The administrator's policy for signatures. It counts once there are keys.
struct SignaturePolicy {
  enum class Unsigned { refused, ask, allowed };
  Unsigned unsignedBundles = Unsigned::refused;
  bool areDowngradesAllowed = false;
  // The caller holds the right that Unsigned::ask asks for.
  bool isUnsignedGranted = false;
};

// An item by the open folder that holds it; the folder may be opened with O_PATH.
struct ItemInFolder {
  int folder = -1;
  std::string name;
};

// The whole check of one replacement, after `replacement` was staged and before it is swapped with `installed`, where
// nothing need be. Without keys nothing is checked, and nullopt returned; else the identity that was verified, or that an
// unsigned bundle which is let through claims.
std::optional<BundleIdentity> verifyReplacement(const ItemInFolder& replacement, const ItemInFolder& installed,
                                                const std::vector<TrustedKey>& keys, const SignaturePolicy& policy);

}  // namespace AssistantTool
