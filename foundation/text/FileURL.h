#pragma once
// File URLs. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation::FileURL {

// The path of a file URL: "file:///a%20b" gives "/a b". A host is accepted and left out, so that "file://server/a" gives
// "/a". Returns nullopt for a URL of another scheme, without a path, with a malformed escape or with a NUL.
std::optional<std::string> path(std::string_view url);

// The file URL of an absolute path. Every byte that a URL's path may not hold is percent-encoded.
std::string fromPath(std::string_view path);

}  // namespace foundation::FileURL
