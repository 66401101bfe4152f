#include "platform/linux/Volume.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <string>
#include <vector>

namespace platform::Linux {

namespace {

struct Scheme {
  std::string_view fileSystem;
  std::string_view scheme;
};

// Everything that is not in this table keeps its files on this machine.
constexpr std::array<Scheme, 26> networkSchemes{{
    {"nfs", "nfs"},
    {"nfs4", "nfs"},
    {"cifs", "smb"},
    {"smb3", "smb"},
    {"smbfs", "smb"},
    {"fuse.smbnetfs", "smb"},
    {"fuse.sshfs", "sftp"},
    {"davfs", "dav"},
    {"fuse.davfs", "dav"},
    {"fuse.davfs2", "dav"},
    {"fuse.curlftpfs", "ftp"},
    {"9p", "9p"},
    {"afs", "afs"},
    {"fuse.afs", "afs"},
    {"coda", "coda"},
    {"ncpfs", "ncp"},
    {"ceph", "ceph"},
    {"fuse.ceph", "ceph"},
    {"fuse.ceph-fuse", "ceph"},
    {"glusterfs", "glusterfs"},
    {"fuse.glusterfs", "glusterfs"},
    {"lustre", "lustre"},
    {"beegfs", "beegfs"},
    {"fuse.rclone", "rclone"},
    {"fuse.s3fs", "s3"},
    {"fuse.gvfsd-fuse", "gvfs"},
}};

struct Mount {
  std::string point;
  std::string fileSystem;
  std::string source;
};

bool isPlain(unsigned char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
         std::string_view("-._~/@:[]").find(static_cast<char>(byte)) != std::string_view::npos;
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string encoded;
  for (const unsigned char byte : text) {
    if (isPlain(byte))
      encoded += static_cast<char>(byte);
    else
      encoded.append({'%', digits[byte >> 4U], digits[byte & 15U]});
  }
  return encoded;
}

bool isOctal(char digit) { return digit >= '0' && digit <= '7'; }

// The kernel writes blanks, line ends and backslashes of a field as "\" and three octal digits.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) && isOctal(field[i + 2]) &&
        isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> parts;
  while (!line.empty()) {
    const auto blank = line.find(' ');
    parts.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) break;
    line.remove_prefix(blank + 1);
  }
  return parts;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue", with any number of tags before the
// lone "-".
std::optional<Mount> mountOfLine(std::string_view line, std::uint64_t wanted) {
  const auto parts = fields(line);
  if (parts.size() < 6) return std::nullopt;
  std::uint64_t number = 0;
  const auto end = parts[0].data() + parts[0].size();
  if (std::from_chars(parts[0].data(), end, number).ptr != end || number != wanted) return std::nullopt;
  for (std::size_t i = 6; i + 2 < parts.size(); ++i)
    if (parts[i] == "-") return Mount{unescaped(parts[4]), unescaped(parts[i + 1]), unescaped(parts[i + 2])};
  return std::nullopt;
}

std::optional<Mount> mountWithNumber(std::string_view mountInfo, std::uint64_t wanted) {
  while (!mountInfo.empty()) {
    const auto end = mountInfo.find('\n');
    if (auto mount = mountOfLine(mountInfo.substr(0, end), wanted)) return mount;
    if (end == std::string_view::npos) break;
    mountInfo.remove_prefix(end + 1);
  }
  return std::nullopt;
}

// The source is a URL already, or "server:/export" or "//server/share".
std::string networkURL(std::string_view scheme, std::string source) {
  if (source.find("://") != std::string::npos) return percentEncoded(source);
  source.erase(0, source.find_first_not_of('/'));
  const auto colon = source.find(":/");
  if (colon != std::string::npos) source.erase(colon, 1);
  return std::string(scheme) + "://" + percentEncoded(source);
}

}  // namespace

std::optional<std::uint64_t> mountOfPath(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &status) != 0) return std::nullopt;
  if ((status.stx_mask & STATX_MNT_ID) == 0) return std::nullopt;
  return status.stx_mnt_id;
}

std::optional<std::string> volumeURL(std::string_view mountInfo, std::uint64_t mount) {
  const auto found = mountWithNumber(mountInfo, mount);
  if (!found) return std::nullopt;
  for (const auto& [fileSystem, scheme] : networkSchemes)
    if (found->fileSystem == fileSystem) return networkURL(scheme, found->source);
  return "file://" + percentEncoded(found->point == "/" ? "" : found->point) + "/";
}

}  // namespace platform::Linux
