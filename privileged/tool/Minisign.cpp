#include "privileged/tool/Minisign.h"

#include <sodium.h>

#include <algorithm>
#include <vector>

#include "privileged/tool/Failure.h"

namespace AssistantTool::Minisign {
namespace {

constexpr std::string_view commentPrefix = "untrusted comment: ";
constexpr std::string_view trustedCommentPrefix = "trusted comment: ";
constexpr std::array<unsigned char, 2> plainAlgorithm{'E', 'd'};
constexpr std::array<unsigned char, 2> prehashedAlgorithm{'E', 'D'};

// Chooses the fastest code for this processor.
void prepareLibrary() {
  static const bool isReady = sodium_init() >= 0;
  if (!isReady) throw Failure("the signature library does not work");
}

// The lines of a file; the last may lack its line break. Minisign itself takes both kinds of line break.
std::vector<std::string_view> linesOf(std::string_view contents) {
  if (contents.size() > maximumMinisignBytes) throw Failure("longer than any file of minisign");
  std::vector<std::string_view> lines;
  while (!contents.empty()) {
    const auto end = std::min(contents.find('\n'), contents.size());
    auto line = contents.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.push_back(line);
    contents.remove_prefix(std::min(contents.size(), end + 1));
  }
  return lines;
}

std::string encoded(const unsigned char* bytes, std::size_t length) {
  std::string text(sodium_base64_encoded_len(length, sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(text.data(), text.size(), bytes, length, sodium_base64_VARIANT_ORIGINAL);
  text.pop_back();  // the zero byte at the end
  return text;
}

template <std::size_t Length>
std::array<unsigned char, Length> decoded(std::string_view text) {
  std::array<unsigned char, Length> bytes{};
  std::size_t length = 0;
  const int result = sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &length, nullptr,
                                       sodium_base64_VARIANT_ORIGINAL);
  // The library takes the byte 255 for a character of Base64.
  if (result != 0 || length != Length || encoded(bytes.data(), Length) != text)
    throw Failure("not the Base64 form of " + std::to_string(Length) + " bytes");
  return bytes;
}

// Takes the next bytes of a record apart.
template <std::size_t Length>
std::array<unsigned char, Length> take(const unsigned char*& bytes) {
  std::array<unsigned char, Length> part{};
  std::copy_n(bytes, Length, part.begin());
  bytes += Length;
  return part;
}

bool isSignedBy(const PublicKey& key, const std::array<unsigned char, 64>& signature, const unsigned char* bytes,
                std::size_t length) {
  return crypto_sign_verify_detached(signature.data(), bytes, length, key.point.data()) == 0;
}

bool isOfMessage(const Signature& signature, const PublicKey& key, std::string_view message) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
  if (!signature.isPrehashed) return isSignedBy(key, signature.ofMessage, bytes, message.size());
  std::array<unsigned char, crypto_generichash_BYTES_MAX> hash{};
  crypto_generichash(hash.data(), hash.size(), bytes, message.size(), nullptr, 0);
  return isSignedBy(key, signature.ofMessage, hash.data(), hash.size());
}

bool hasTrueComment(const Signature& signature, const PublicKey& key) {
  std::vector<unsigned char> covered(signature.ofMessage.begin(), signature.ofMessage.end());
  covered.insert(covered.end(), signature.trustedComment.begin(), signature.trustedComment.end());
  return isSignedBy(key, signature.ofComment, covered.data(), covered.size());
}

}  // namespace

PublicKey publicKeyOfFile(std::string_view contents) {
  const auto lines = linesOf(contents);
  if (lines.size() != 2 || !lines[0].starts_with(commentPrefix))
    throw Failure("not a public key of minisign: a comment line and a line with the key are expected");
  return publicKeyOfText(lines[1]);
}

PublicKey publicKeyOfText(std::string_view text) {
  constexpr std::size_t recordBytes = 2 + 8 + 32;
  const auto record = decoded<recordBytes>(text);
  const auto* bytes = record.data();
  if (take<2>(bytes) != plainAlgorithm) throw Failure("the key is of an unknown kind");
  PublicKey key;
  key.identifier = take<8>(bytes);
  key.point = take<32>(bytes);
  return key;
}

std::string textOf(const PublicKey& key) {
  std::vector<unsigned char> record(plainAlgorithm.begin(), plainAlgorithm.end());
  record.insert(record.end(), key.identifier.begin(), key.identifier.end());
  record.insert(record.end(), key.point.begin(), key.point.end());
  return encoded(record.data(), record.size());
}

Signature signatureOfFile(std::string_view contents) {
  constexpr std::size_t recordBytes = 2 + 8 + 64;
  const auto lines = linesOf(contents);
  if (lines.size() != 4 || !lines[0].starts_with(commentPrefix) || !lines[2].starts_with(trustedCommentPrefix))
    throw Failure("not a signature of minisign: four lines, two of them comments, are expected");
  const auto record = decoded<recordBytes>(lines[1]);
  const auto* bytes = record.data();
  const auto algorithm = take<2>(bytes);
  if (algorithm != plainAlgorithm && algorithm != prehashedAlgorithm) throw Failure("the signature is of an unknown kind");
  Signature signature;
  signature.isPrehashed = algorithm == prehashedAlgorithm;
  signature.identifier = take<8>(bytes);
  signature.ofMessage = take<64>(bytes);
  signature.trustedComment = lines[2].substr(trustedCommentPrefix.size());
  signature.ofComment = decoded<64>(lines[3]);
  return signature;
}

std::optional<std::string> faultOf(const Signature& signature, const PublicKey& key, std::string_view message) {
  prepareLibrary();
  if (signature.identifier != key.identifier) return "the signature names another key";
  if (!isOfMessage(signature, key, message)) return "the signature does not match";
  if (!hasTrueComment(signature, key)) return "the signature's trusted comment is forged";
  return std::nullopt;
}

std::string textOf(const KeyIdentifier& identifier) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text;
  for (auto byte = identifier.rbegin(); byte != identifier.rend(); ++byte) {
    text += digits[*byte >> 4];
    text += digits[*byte & 15];
  }
  text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
  return text;
}

}  // namespace AssistantTool::Minisign
