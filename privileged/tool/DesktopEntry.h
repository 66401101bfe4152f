#pragma once
// The desktop entry that a bundle brings for the menus. The bundle's file itself is never installed: each key that is known
// to be harmless is judged by its kind, everything else is refused, and the installed entry is written anew from the judged
// values, with the path of the installed bundle before each program.
//
// Pure; any thread; total, and bounded by maximumDesktopEntryBytes.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "privileged/tool/DesktopCommand.h"

namespace AssistantTool {

inline constexpr std::size_t maximumDesktopEntryBytes = std::size_t{64} << 10;

class DesktopEntry {
 public:
  // Throws Failure with the line and the cause: not UTF-8, too long, a group or key that is not known or comes twice, one
  // that is missing, a value that is not of its key's kind, a command that names a program outside the bundle.
  explicit DesktopEntry(std::string_view text);

  // The paths in the bundle of all programs that the entry names.
  [[nodiscard]] const std::vector<std::string>& programs() const { return _programs; }
  // The entry for the bundle at `bundle`, which it names in a key of our own. Throws Failure for a path that no entry can
  // hold.
  [[nodiscard]] std::string installedFor(const std::string& bundle) const;

  // The bundle that an installed entry names in that key; nullopt for an entry of somebody else. Reads any file.
  static std::optional<std::string> bundleNamedBy(std::string_view installedEntry);

 private:
  friend class DesktopEntryReader;

  // A value is a text that stays as it is, or names a program.
  struct Line {
    std::string key;  // a group's head when there is no value
    std::optional<std::string> value{};
    std::optional<DesktopCommand> command{};
    std::optional<std::string> program{};
  };
  std::vector<Line> _lines;
  std::vector<std::string> _programs;
};

}  // namespace AssistantTool
