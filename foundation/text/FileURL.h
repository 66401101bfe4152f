#pragma once
// File URLs. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation::FileURL {

// The path that a file URL names ("file:///a%20b" gives "/a b"); nothing for a URL of another scheme, of another machine,
// with a malformed escape or an escaped NUL.
std::optional<std::string> path(std::string_view url);

// The file URL of an absolute path, every byte that may not stand in a URL's path percent-encoded.
std::string fromPath(std::string_view path);

}  // namespace foundation::FileURL
