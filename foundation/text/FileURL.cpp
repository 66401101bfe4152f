#include "foundation/text/FileURL.h"

#include <algorithm>

#include "foundation/text/PercentEncoding.h"

namespace foundation::FileURL {
namespace {

bool consumePrefix(std::string_view& text, std::string_view lowerCasePrefix) {
  if (text.size() < lowerCasePrefix.size()) return false;
  for (std::size_t i = 0; i < lowerCasePrefix.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
    if (c != lowerCasePrefix[i]) return false;
  }
  text.remove_prefix(lowerCasePrefix.size());
  return true;
}

}  // namespace

std::optional<std::string> path(std::string_view url) {
  if (!consumePrefix(url, "file:")) return std::nullopt;
  url = url.substr(0, url.find_first_of("?#"));
  if (url.starts_with("//")) url.remove_prefix(std::min(url.find('/', 2), url.size()));
  if (!url.starts_with('/')) return std::nullopt;
  std::string path(url);
  if (!decodePercentEscapes(path) || path.find('\0') != std::string::npos) return std::nullopt;
  return path;
}

std::string fromPath(std::string_view path) {
  constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/!$&'()*+,;=:@";
  std::string url = "file://";
  for (const char c : path) {
    if (plain.find(c) == std::string_view::npos)
      appendPercentEscape(url, c);
    else
      url += c;
  }
  return url;
}

}  // namespace foundation::FileURL
