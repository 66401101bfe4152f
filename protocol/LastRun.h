#pragma once
// The record that the installer leaves of its last run, and that the application reads at its next start: one property
// list. Any thread.
#include <string>

namespace protocol {

namespace lastRunKey {

inline constexpr const char* mode = "LastRunMode";              // "update", "install" or "remove"
inline constexpr const char* bundle = "LastRunBundle";          // the path of the installed bundle
inline constexpr const char* oldVersion = "LastRunOldVersion";  // of the installed bundle before the run
inline constexpr const char* newVersion = "LastRunNewVersion";  // of the bundle to install; missing when one was removed
inline constexpr const char* status = "LastRunStatus";          // the exit status
inline constexpr const char* step = "LastRunStep";              // this and the next two are missing when the status is 0
inline constexpr const char* path = "LastRunPath";
inline constexpr const char* cause = "LastRunCause";
inline constexpr const char* time = "LastRunTime";  // of the run's end

}  // namespace lastRunKey

// $XDG_STATE_HOME/kelto/last-run.plist, with ~/.local/state for a variable that is missing or relative; empty without a
// home folder.
std::string lastRunPath();

}  // namespace protocol
