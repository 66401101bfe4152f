#include "foundation/text/FileURL.h"

namespace foundation::FileURL {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool consumePrefix(std::string_view& text, std::string_view lowerCasePrefix) {
  if (text.size() < lowerCasePrefix.size()) return false;
  for (std::size_t i = 0; i < lowerCasePrefix.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
    if (c != lowerCasePrefix[i]) return false;
  }
  text.remove_prefix(lowerCasePrefix.size());
  return true;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0 || high + low == 0) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

}  // namespace

std::optional<std::string> path(std::string_view url) {
  if (!consumePrefix(url, "file:")) return std::nullopt;
  if (url.starts_with("//")) {
    url.remove_prefix(2);
    consumePrefix(url, "localhost");
  }
  url = url.substr(0, url.find_first_of("?#"));
  if (!url.starts_with('/')) return std::nullopt;
  return percentDecoded(url);
}

std::string fromPath(std::string_view path) {
  constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/!$&'()*+,;=:@";
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string url = "file://";
  for (const char c : path) {
    if (plain.find(c) != std::string_view::npos) {
      url += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    url += {'%', digits[byte >> 4U], digits[byte & 15U]};
  }
  return url;
}

}  // namespace foundation::FileURL
