#pragma once
// The notification by which the controller hands its rights over: its user info holds the external form of the
// authorization session as data. Constants; any thread.

namespace protocol {

inline constexpr const char* credentialsNotification = "KMInstallToolCredentialsNotification";
inline constexpr const char* credentialsKey = "KMInstallToolCredentials";

}  // namespace protocol
