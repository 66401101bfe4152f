#pragma once
// "install", "update", "remove" and "rollback": what is to be changed, in the installer's terms and in a person's. Main
// thread.
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "cli/Results.h"
#include "platform/Platform.h"

namespace cli {

struct Change {
  Command command = Command::update;
  std::string source;     // the new bundle; empty when there is none
  std::string installed;  // the installed bundle, or the place for it
};

// Where no place is given, it is in the folder for the applications of this machine. A return has no source yet.
Change changeOf(const Arguments& arguments);
// The bundle to return to among those that are kept, newest first; empty when none has that version.
std::string chosenBundle(const std::vector<std::string>& kept, const std::optional<std::string>& version,
                         const platform::Bundles& bundles);

// The arguments with which a controller would start the installer for it.
std::vector<std::string> launchArguments(const Change& change);

// The bundle that runs, and that is started in the end.
std::string applicationOf(const Change& change);

// Why the command is not the one that fits what is installed; nullopt if it fits.
std::optional<platform::Failure> objectionTo(const Change& change, const platform::Platform& platform);

// The facts: action, bundle, and the versions before and after. Before anything is changed.
Dictionary factsOf(const Change& change, const platform::Bundles& bundles);
void addEnding(Dictionary& facts, const platform::RunReport& report);
// A person is asked this before, and told that after.
std::string questionAbout(const Dictionary& facts);
std::string reportOf(const Dictionary& facts);

}  // namespace cli
