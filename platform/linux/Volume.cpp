#include "platform/linux/Volume.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "posix/MountTable.h"

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
  const auto mounts = posix::mountsIn(mountInfo);
  const auto found = std::ranges::find(mounts, mount, &posix::Mount::number);
  if (found == mounts.end()) return std::nullopt;
  for (const auto& [fileSystem, scheme] : networkSchemes)
    if (found->fileSystem == fileSystem) return networkURL(scheme, found->source);
  return "file://" + percentEncoded(found->point == "/" ? "" : found->point) + "/";
}

}  // namespace platform::Linux
