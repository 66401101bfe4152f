#pragma once
// The desktop entry and the icons in a bundle: Contents/Resources/Desktop/<identifier>.desktop, and beside it
// icons/hicolor/<size>/apps/<identifier>.png, or .svg.
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/PathWalk.h"
#include "privileged/tool/TrustedKeys.h"

namespace AssistantTool {

inline constexpr const char* desktopFolder = "Contents/Resources/Desktop";
inline constexpr const char* iconFolder = "icons/hicolor";  // there, and where the menus look for icons
inline constexpr const char* iconContext = "apps";

struct BroughtIcon {
  std::string size;  // "48x48", "scalable"
  std::string name;  // "<identifier>.png"
};

// All that a bundle has for the menus, judged.
struct BroughtEntry {
  std::string identifier;
  std::string text;  // the entry as it is installed
  std::vector<BroughtIcon> icons;
};

// Whether something is there to be judged. Looks only.
bool bringsEntry(const Location& bundle);

// nullopt for a bundle that brings none. Throws Failure with the cause for an entry that is refused; it may start nothing
// but programs in the bundle that nobody but root and `user` can exchange. With `keys`, the bundle has to be one that may
// be installed, and the entry its publisher's.
std::optional<BroughtEntry> entryBroughtBy(const Location& bundle, uid_t user, const std::vector<TrustedKey>& keys,
                                           const SignaturePolicy& signatures);

}  // namespace AssistantTool
