#pragma once
// A notification from one program to another: a signal on the session bus with the notification's name, its object and its
// user info, of the signature ssa{sv}. Constants; any thread.

namespace protocol {

inline constexpr const char* notificationsPath = "/com/kelto/DistributedNotifications";
inline constexpr const char* notificationsInterface = "com.kelto.DistributedNotifications";
inline constexpr const char* notificationSignal = "Posted";

// A program that gets notifications owns two names on the bus: its bundle identifier, which one process at a time can have,
// and the identifier with this word and the process's number, by which the program that started it finds it.
inline constexpr const char* processNameInfix = ".Process";

}  // namespace protocol
