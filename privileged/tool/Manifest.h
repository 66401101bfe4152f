#pragma once
// The manifest of a signed bundle: its identifier, its version and everything that is in it. It lies in the bundle as
// Contents/_Signature/manifest, its signature beside it as manifest.minisig; these two are the only entries that it does
// not list.
//
// The format is text in ASCII, each line ended by a line feed:
//
//   kelto-manifest 1
//   identifier com.example.App
//   version 4.2.1234b
//   previous-key RWQ...                          only when the bundle before was signed with another key
//   folder 0755 0 - .
//   folder 0755 0 - Contents
//   file 0644 1024 <SHA-256> Contents/Info.plist
//   link 0777 10 <SHA-256> Contents/Link
//
// An entry is its kind, mode in four octal digits, size, SHA-256 in lower-case hexadecimal digits and path, with one space
// between them. Size and SHA-256 of a link are those of its target's text, a folder has the size 0 and "-". The path is
// the rest of the line: relative to the bundle, with every byte that is not printable ASCII, and "%", written as "%" and
// two upper-case hexadecimal digits. The bundle itself comes first, as "."; the others are sorted by the bytes of their
// paths, and an entry's folder is listed too. Modes grant writing to the owner only and have no set-id or sticky bit: such
// an entry would not survive in a bundle that belongs to root.
//
// Every manifest has exactly one such text, and the parser takes no other: what is written again is the same, byte by byte.
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "privileged/tool/Minisign.h"

namespace AssistantTool {

inline constexpr std::size_t maximumManifestBytes = std::size_t{16} << 20;
inline constexpr std::size_t maximumManifestEntries = 100'000;
inline constexpr std::string_view bundleItself = ".";
inline constexpr const char* signatureFolderPath = "Contents/_Signature";
inline constexpr const char* manifestPath = "Contents/_Signature/manifest";
inline constexpr const char* signaturePath = "Contents/_Signature/manifest.minisig";

using Digest = std::array<unsigned char, 32>;  // SHA-256

enum class EntryKind { file, folder, link };

struct ManifestEntry {
  EntryKind kind = EntryKind::file;
  mode_t mode = 0;
  std::uint64_t size = 0;
  Digest digest{};   // all zero for a folder
  std::string path;  // `bundleItself`, or below it
  bool operator==(const ManifestEntry&) const = default;
};

struct Manifest {
  std::string identifier;
  std::string version;
  std::optional<Minisign::PublicKey> previousKey;
  std::vector<ManifestEntry> entries;  // sorted, "." first

  // The entry with this path, or nullptr. Owned by the manifest.
  [[nodiscard]] const ManifestEntry* find(std::string_view path) const;
  bool operator==(const Manifest&) const = default;
};

// Total and bounded by its input; throws Failure with a reason that names the line.
Manifest manifestOf(std::string_view bytes);
// The text of a manifest. Throws Failure when the parser would refuse it.
std::string textOf(const Manifest& manifest);

// Orders the paths of entries as a manifest lists them.
bool comesBefore(std::string_view path, std::string_view other);

// Whether the text can be a bundle identifier: letters, digits, ".", "-" and "_", at most 255.
bool isBundleIdentifier(std::string_view text);
// The manifest's form of a path, for messages too.
std::string printable(std::string_view path);
// "file", "folder" or "link".
std::string_view nameOf(EntryKind kind);
std::string octal(mode_t mode);
// In lower case.
std::string hexadecimal(const Digest& digest);

}  // namespace AssistantTool
