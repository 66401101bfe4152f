#pragma once
// Public keys and signatures in the files of minisign, and what they say about bytes. Both of its forms are read: the
// signature of the bytes themselves ("Ed") and of their BLAKE2b hash ("ED"); in both, a second signature covers the first
// and the trusted comment.
//
// Pure; any thread. The readers take any bytes: they are total, bounded by maximumMinisignBytes, and throw Failure with a
// reason.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AssistantTool::Minisign {

inline constexpr std::size_t maximumMinisignBytes = 16384;

// The eight random bytes by which a signature names its key. A hint only: anybody can make a key with the same ones.
using KeyIdentifier = std::array<unsigned char, 8>;

struct PublicKey {
  KeyIdentifier identifier{};
  std::array<unsigned char, 32> point{};
  bool operator==(const PublicKey&) const = default;
};

struct Signature {
  bool isPrehashed = false;
  KeyIdentifier identifier{};
  std::array<unsigned char, 64> ofMessage{};
  std::string trustedComment;
  std::array<unsigned char, 64> ofComment{};
};

// The contents of a .pub file: a comment line and the line that publicKeyOfText() reads.
PublicKey publicKeyOfFile(std::string_view contents);
// One line of Base64, as "minisign -P" takes it; textOf() writes it.
PublicKey publicKeyOfText(std::string_view text);
std::string textOf(const PublicKey& key);
// The contents of a .minisig file.
Signature signatureOfFile(std::string_view contents);

// Why `signature` is not one of `message` by `key`; nullopt when it is.
std::optional<std::string> faultOf(const Signature& signature, const PublicKey& key, std::string_view message);

// As minisign prints it: upper-case hexadecimal digits without zeros before them.
std::string textOf(const KeyIdentifier& identifier);

}  // namespace AssistantTool::Minisign
