#pragma once
// Authorization Services: sessions that hold administrator rights, and programs run with them.
//
// Main thread; every call may block it for long (the policy service may ask a person). The window stays alive meanwhile.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace platform {

// A handle to a session, owned by this process; 0 names no session. Only free() ends it.
using AuthorizationRef = std::uint64_t;
using AuthorizationStatus = std::int32_t;
using AuthorizationFlags = std::uint32_t;

// The statuses and flags have the numbers of the system's own interface.
inline constexpr AuthorizationStatus errAuthorizationSuccess = 0;
inline constexpr AuthorizationStatus errAuthorizationInvalidRef = -60002;
inline constexpr AuthorizationStatus errAuthorizationDenied = -60005;
inline constexpr AuthorizationStatus errAuthorizationCanceled = -60006;
inline constexpr AuthorizationStatus errAuthorizationInteractionNotAllowed = -60007;
inline constexpr AuthorizationStatus errAuthorizationInternal = -60008;
inline constexpr AuthorizationStatus errAuthorizationToolExecuteFailure = -60031;

inline constexpr AuthorizationFlags kAuthorizationFlagDefaults = 0;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 2;
inline constexpr AuthorizationFlags kAuthorizationFlagDestroyRights = 8;
inline constexpr AuthorizationFlags kAuthorizationFlagPreAuthorize = 16;

inline constexpr std::size_t kAuthorizationExternalFormLength = 32;
inline constexpr const char* kAuthorizationRightExecute = "system.privilege.admin";

struct AuthorizationItem {
  const char* name = nullptr;
  std::uint64_t valueLength = 0;
  void* value = nullptr;
  std::uint32_t flags = 0;
};

struct AuthorizationRights {
  std::uint32_t count = 0;
  AuthorizationItem* items = nullptr;
};

struct AuthorizationExternalForm {
  std::array<std::byte, kAuthorizationExternalFormLength> bytes{};
};

// Both ends of a tool's standard input and output as one stream. Closed by the destructor.
class ByteStream {
 public:
  virtual ~ByteStream() = default;
  // Writes everything unless it fails; returns the number of bytes written.
  virtual std::size_t write(const void* bytes, std::size_t length) = 0;
  // Reads once, as much as there is, waiting until there is something; 0 at the end or on an error.
  virtual std::size_t read(void* buffer, std::size_t capacity) = 0;
  // From now on a call that waits fails when the tool is silent for too long: when there are neither bytes nor signs of
  // life, which it gives by the access time of the file at `path`. AuthorizationServices::cause() says so then.
  virtual void expectSignsOfLife(const std::string& /*path*/) {}
};

class AuthorizationServices {
 public:
  virtual ~AuthorizationServices() = default;

  // Why the last call failed, in words; empty if its status says all.
  [[nodiscard]] virtual std::string cause() const = 0;

  // Makes an empty session. Here and below, outputs are untouched on a status other than success, and a handle that does
  // not exist gives errAuthorizationInvalidRef.
  virtual AuthorizationStatus create(AuthorizationFlags flags, AuthorizationRef& authorization) = 0;
  virtual AuthorizationStatus makeExternalForm(AuthorizationRef authorization, AuthorizationExternalForm& form) = 0;
  virtual AuthorizationStatus createFromExternalForm(const AuthorizationExternalForm& form,
                                                     AuthorizationRef& authorization) = 0;
  // Asks for the rights; only kAuthorizationFlagExtendRights adds one that the session does not hold yet. Asks a person
  // only with kAuthorizationFlagInteractionAllowed.
  virtual AuthorizationStatus copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                         AuthorizationFlags flags) = 0;
  // Drops the handle; kAuthorizationFlagDestroyRights also ends the rights for everyone who shares the session.
  virtual AuthorizationStatus free(AuthorizationRef authorization, AuthorizationFlags flags) = 0;
  // Starts the executable at `path` with elevated rights and no arguments; `stream` gets its standard input and output.
  virtual AuthorizationStatus executeWithPrivileges(AuthorizationRef authorization, const std::string& path,
                                                    AuthorizationFlags options, std::unique_ptr<ByteStream>& stream) = 0;
};

}  // namespace platform
