#pragma once
// What the broker and its clients agree on: names on the bus, and how a status travels as an error. Pure values.
//
//   Create() -> t handle                          an empty session
//   MakeExternalForm(t) -> ay                     32 bytes that stand for the session, for the same user only
//   CreateFromExternalForm(ay) -> t handle        another handle of that session
//   CopyRights(t, s right, u flags) -> u status
//   Free(t, u flags) -> u status
//   ExecuteWithPrivileges(t, h tool, u options) -> h stream
//
// Methods without a status in their answer fail with an error of the name that stands for the status.
#include <array>
#include <string_view>

#include "platform/Authorization.h"

namespace platform::Linux::authorizationd {

inline constexpr const char* BusName = "com.kelto.Authorization1";
inline constexpr const char* ObjectPath = "/com/kelto/Authorization1";
inline constexpr const char* InterfaceName = "com.kelto.Authorization1";

struct ErrorName {
  AuthorizationStatus status;
  const char* name;
};

inline constexpr std::array ErrorNames{
    ErrorName{errAuthorizationInternal, "com.kelto.Authorization1.Error.Internal"},
    ErrorName{errAuthorizationInvalidRef, "com.kelto.Authorization1.Error.InvalidRef"},
    ErrorName{errAuthorizationDenied, "com.kelto.Authorization1.Error.Denied"},
    ErrorName{errAuthorizationToolExecuteFailure, "com.kelto.Authorization1.Error.ToolExecuteFailure"},
};

constexpr const char* errorNameForStatus(AuthorizationStatus status) {
  for (const auto& entry : ErrorNames) {
    if (entry.status == status) return entry.name;
  }
  return ErrorNames.front().name;
}

// Any other error, one of the bus itself for instance, is an internal one.
constexpr AuthorizationStatus statusForErrorName(std::string_view name) {
  for (const auto& entry : ErrorNames) {
    if (entry.name == name) return entry.status;
  }
  return errAuthorizationInternal;
}

}  // namespace platform::Linux::authorizationd
