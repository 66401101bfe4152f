#include "platform/linux/ReadDocument.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace platform::Linux {
namespace {

std::nullopt_t refuse(ReadFailure& failure, std::string reason, bool isMissing = false) {
  failure = {isMissing, std::move(reason)};
  return std::nullopt;
}

}  // namespace

std::optional<ReadDocument> readDocument(const std::string& path, std::size_t limit, ReadFailure& failure) {
  // Without waiting, in case a pipe without a writer has that name.
  ReadDocument document{posix::Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)), {}, {}};
  if (!document.file) return refuse(failure, std::strerror(errno), errno == ENOENT || errno == ENOTDIR);
  if (::fstat(document.file.get(), &document.status) != 0) return refuse(failure, std::strerror(errno));
  if (!S_ISREG(document.status.st_mode)) return refuse(failure, "it is not a regular file");
  char buffer[16384];
  for (;;) {
    const auto count = ::read(document.file.get(), buffer, sizeof buffer);
    if (count == 0) return document;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return refuse(failure, std::strerror(errno));
    document.bytes.append(buffer, static_cast<std::size_t>(count));
    if (document.bytes.size() > limit) return refuse(failure, "it is larger than " + std::to_string(limit) + " bytes");
  }
}

}  // namespace platform::Linux
