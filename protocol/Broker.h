#pragma once
// The broker's bus interface: the names, signatures and limits that the broker and its clients agree on. Pure values.
//
// com.kelto.Authorization1.xml, beside this file, describes the same interface for other programs and languages.
//
// A session belongs to one user. A handle stands for a session on one connection, and ends with the connection. An external
// form stands for a session while it is handed to another process: it is good once, for the same user, for a minute, and
// only for the process for which it was made when it was made for one. A method without a status in its answer fails with
// an error whose name stands for the status.
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace protocol {

inline constexpr const char* brokerBusName = "com.kelto.Authorization1";
inline constexpr const char* brokerObjectPath = "/com/kelto/Authorization1";
inline constexpr const char* brokerInterface = "com.kelto.Authorization1";

struct BrokerMethod {
  const char* name;
  const char* takes;      // D-Bus signature
  const char* takeNames;  // one name a value, separated by blanks
  const char* gives;
  const char* giveNames;
};

namespace brokerMethod {

// An empty session.
inline constexpr BrokerMethod create{"Create", "", "", "t", "handle"};
// 32 bytes that stand for the session; good for any process of the user. For controllers that know no other.
inline constexpr BrokerMethod makeExternalForm{"MakeExternalForm", "t", "handle", "ay", "form"};
// The same, good for the process that the pidfd names and for no other.
inline constexpr BrokerMethod makeExternalFormFor{"MakeExternalFormFor", "th", "handle process", "ay", "form"};
// Another handle of the form's session. Uses the form up.
inline constexpr BrokerMethod createFromExternalForm{"CreateFromExternalForm", "ay", "form", "t", "handle"};
inline constexpr BrokerMethod copyRights{"CopyRights", "tsu", "handle right flags", "u", "statusCode"};
inline constexpr BrokerMethod free{"Free", "tu", "handle flags", "u", "statusCode"};
// Runs the program that `tool` is open on; `stream` is the other end of its standard input and output. The session must
// hold the right adminRight; for a program that is not listed as a tool an administrator is asked besides.
inline constexpr BrokerMethod executeWithPrivileges{"ExecuteWithPrivileges", "thu", "handle tool options", "h", "stream"};
// Whether the policy service, and perhaps a person, is being asked about a call of this connection, which takes its time
// then.
inline constexpr BrokerMethod isAsking{"IsAsking", "", "", "b", "isAsking"};

}  // namespace brokerMethod

// Counts up with every addition to the interface; a broker that lacks the property is of version 1.
inline constexpr const char* brokerVersionProperty = "Version";
inline constexpr std::uint32_t brokerVersion = 3;

// To have the listed tools run with administrator rights.
inline constexpr const char* adminRight = "system.privilege.admin";
// To have any program run with them.
inline constexpr const char* anyProgramRight = "com.kelto.privilege.run-any";

// The questions that the policy service is asked, one for each right.
inline constexpr const char* adminAction = "com.kelto.authorization.admin";
inline constexpr const char* anyProgramAction = "com.kelto.authorization.run-any";
// The detail of a question that names the program which asks.
inline constexpr const char* programDetail = "requester";

inline constexpr std::size_t externalFormLength = 32;
// The broker refuses more, so that no user can exhaust the resources that all users share.
inline constexpr std::size_t maximumHandlesOfUser = 64;
inline constexpr std::size_t maximumHandlesOfConnection = 16;
inline constexpr std::size_t maximumFormsOfUser = 16;
inline constexpr std::size_t maximumQuestionsOfUser = 8;
inline constexpr std::size_t maximumToolsOfUser = 8;

inline constexpr std::int32_t brokerStatusSuccess = 0;
inline constexpr std::int32_t brokerStatusInvalidRef = -60002;
inline constexpr std::int32_t brokerStatusDenied = -60005;
inline constexpr std::int32_t brokerStatusInternal = -60008;
inline constexpr std::int32_t brokerStatusToolExecuteFailure = -60031;

struct BrokerError {
  std::int32_t status;
  const char* name;
};

inline constexpr std::array brokerErrors{
    BrokerError{brokerStatusInternal, "com.kelto.Authorization1.Error.Internal"},
    BrokerError{brokerStatusInvalidRef, "com.kelto.Authorization1.Error.InvalidRef"},
    BrokerError{brokerStatusDenied, "com.kelto.Authorization1.Error.Denied"},
    BrokerError{brokerStatusToolExecuteFailure, "com.kelto.Authorization1.Error.ToolExecuteFailure"},
};

constexpr const char* brokerErrorForStatus(std::int32_t status) {
  for (const auto& error : brokerErrors) {
    if (error.status == status) return error.name;
  }
  return brokerErrors.front().name;
}

// Any other error, one of the bus itself for instance, counts as an internal one.
constexpr std::int32_t brokerStatusForError(std::string_view name) {
  for (const auto& error : brokerErrors) {
    if (error.name == name) return error.status;
  }
  return brokerStatusInternal;
}

}  // namespace protocol
