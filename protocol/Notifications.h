#pragma once
// A notification from one program to another: a signal on the session bus with the notification's name, its object and its
// user info, of the signature ssa{sv}. Constants; any thread.

namespace protocol {

inline constexpr const char* notificationsPath = "/com/kelto/DistributedNotifications";
inline constexpr const char* notificationsInterface = "com.kelto.DistributedNotifications";
inline constexpr const char* notificationSignal = "Posted";

}  // namespace protocol
