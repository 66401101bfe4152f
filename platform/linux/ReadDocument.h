#pragma once
// Whole documents read into memory, bounded. Any thread.
#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

#include "posix/Descriptor.h"

namespace platform::Linux {

struct ReadDocument {
  posix::Descriptor file;  // still open: as long as it is, no other document has the same file number
  struct stat status {};
  std::string bytes;
};

// Why a document cannot be read: it is missing, or something is wrong with it.
struct ReadFailure {
  bool isMissing = false;
  std::string reason;
};

// Reads the document at `path` and follows links. Refuses anything but a regular file (a pipe would never end), and files
// larger than `limit` bytes; `failure` then says why.
std::optional<ReadDocument> readDocument(const std::string& path, std::size_t limit, ReadFailure& failure);

}  // namespace platform::Linux
