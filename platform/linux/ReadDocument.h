#pragma once
// Whole documents read into memory, bounded. Any thread.
#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

#include "platform/linux/Descriptor.h"

namespace platform::Linux {

struct ReadDocument {
  Descriptor file;  // still open: as long as it is, no other document has the same file number
  struct stat status {};
  std::string bytes;
};

// What a document that cannot be read lacks: nothing is there, or something is wrong with it.
struct ReadFailure {
  bool isMissing = false;
  std::string reason;
};

// Reads the document at `path`, links followed. Refused is what is no regular file (a pipe would never end) or larger than
// `limit` bytes; `failure` then says why.
std::optional<ReadDocument> readDocument(const std::string& path, std::size_t limit, ReadFailure& failure);

}  // namespace platform::Linux
