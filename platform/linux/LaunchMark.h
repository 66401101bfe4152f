#pragma once
// The mark that a launched application carries in its environment, so that it is known whatever program it becomes.
//
// Its children inherit the environment and are not marked: the mark names the process that it is for.
namespace platform::Linux {

inline constexpr const char* launchedIdentifierVariable = "KELTO_LAUNCHED_IDENTIFIER";
inline constexpr const char* launchedProcessVariable = "KELTO_LAUNCHED_PROCESS";

}  // namespace platform::Linux
