#include "platform/linux/Accounts.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace platform::Linux {

namespace {

constexpr std::size_t largestEntry = std::size_t{1} << 20;  // of a group with very many members

// Calls `lookUp(entry, buffer, result)`, one of the C library's reentrant look-ups, with a buffer that is large enough, and
// then `read` with what it found.
template <class Entry, class LookUp, class Read>
void withEntry(LookUp lookUp, Read read) {
  Entry entry{};
  Entry* found = nullptr;
  std::vector<char> buffer(4096);
  while (lookUp(&entry, buffer, &found) == ERANGE && buffer.size() < largestEntry) buffer.resize(buffer.size() * 4);
  if (found != nullptr) read(*found);
}

}  // namespace

std::optional<uid_t> userWithName(const std::string& name) {
  std::optional<uid_t> user;
  withEntry<passwd>([&](passwd* entry, std::vector<char>& buffer,
                        passwd** found) { return ::getpwnam_r(name.c_str(), entry, buffer.data(), buffer.size(), found); },
                    [&](const passwd& entry) { user = entry.pw_uid; });
  return user;
}

std::optional<gid_t> groupWithName(const std::string& name) {
  std::optional<gid_t> number;
  withEntry<group>([&](group* entry, std::vector<char>& buffer,
                       group** found) { return ::getgrnam_r(name.c_str(), entry, buffer.data(), buffer.size(), found); },
                   [&](const group& entry) { number = entry.gr_gid; });
  return number;
}

std::string homeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return home;
  std::string folder;
  withEntry<passwd>([](passwd* entry, std::vector<char>& buffer,
                       passwd** found) { return ::getpwuid_r(::geteuid(), entry, buffer.data(), buffer.size(), found); },
                    [&](const passwd& entry) { folder = entry.pw_dir; });
  return folder;
}

}  // namespace platform::Linux
