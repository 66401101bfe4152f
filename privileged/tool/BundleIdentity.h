#pragma once
// Which bundle something is, as far as that can be told, and whether one may take the place of another.
#include <optional>
#include <string>

#include "privileged/tool/Minisign.h"

namespace AssistantTool {

struct BundleIdentity {
  std::string identifier;                      // empty when it is not known
  std::string version;                         // empty when it is not known, or cannot be compared
  bool isSigned = false;                       // by its manifest; else both come from its Contents/Info.plist
  std::optional<Minisign::KeyIdentifier> key;  // of its signature
};

// Reads the identity of the item `name` in `parent` and verifies nothing: what is installed was verified when it came.
// nullopt when nothing is there; an identity without anything for a plain file and for a folder that tells none.
// Throws Failure when the item cannot be looked at.
std::optional<BundleIdentity> identityOf(int parent, const std::string& name);

// The same where it is only told, and decides nothing: an item that cannot be looked at has an identity without anything.
std::optional<BundleIdentity> toldIdentityOf(int parent, const std::string& name);

// Each throws Failure with its cause when `replacement` may not take the place of `installed`. The first two let everything
// pass when neither of the two is signed.
//
// Another identifier, or one of the two not known.
void refuseForeignIdentifier(const BundleIdentity& replacement, const BundleIdentity& installed);
// A lower version, or one of the two not known.
void refuseDowngrade(const BundleIdentity& replacement, const BundleIdentity& installed);
// Both are signed with different keys, and the replacement's manifest does not name the key of the installed one. This
// catches mistakes, such as a bundle signed with the key of another product; it does not keep a publisher who is trusted
// with every identifier from naming a key: TrustedKeys' lists of identifiers do.
void refuseOtherKey(const BundleIdentity& replacement, const std::optional<Minisign::PublicKey>& previousKey,
                    const BundleIdentity& installed);

}  // namespace AssistantTool
