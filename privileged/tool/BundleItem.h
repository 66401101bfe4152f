#pragma once
// One entry of a bundle, opened from the bundle's own descriptor: no link in its path is followed, and nothing is reached
// outside the bundle or on another file system.
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/Manifest.h"

namespace AssistantTool {

class BundleItem {
 public:
  // Throws Failure: nothing is there, it cannot be opened, or it is a device, socket or pipe.
  BundleItem(int bundle, std::string path);

  [[nodiscard]] int descriptor() const { return _item.get(); }
  [[nodiscard]] EntryKind kind() const { return _kind; }
  [[nodiscard]] mode_t mode() const { return _mode; }
  // As in a manifest: of a file's contents or a link's target, 0 for a folder.
  [[nodiscard]] std::uint64_t size() const { return _size; }
  // SHA-256 of the same bytes. Throws Failure when the file cannot be read or is not of size() any more.
  [[nodiscard]] Digest digest() const;
  // The manifest's record of this entry.
  [[nodiscard]] ManifestEntry described() const;
  // The paths of all entries of a folder.
  [[nodiscard]] std::vector<std::string> contents() const;

 private:
  std::string _path;
  posix::Descriptor _item;
  EntryKind _kind = EntryKind::file;
  mode_t _mode = 0;
  std::uint64_t _size = 0;
  std::string _target;  // of a link
};

// Whether nothing is at `path` in the bundle. Throws Failure when that cannot be told.
bool isMissing(int bundle, const std::string& path);

// Throws Failure when the link at `path` leads out of the bundle, or to nothing in it.
void requireLinkInside(int bundle, const std::string& path);

// The SHA-256 of an open file, which has to hold `size` bytes. Throws Failure.
Digest digestOfFile(int file, std::uint64_t size, const std::string& path);

// All of an open file, which `name` is for messages. Throws Failure when it is longer than `maximum`.
std::string contentsOfFile(int file, std::size_t maximum, const std::string& name);

}  // namespace AssistantTool
