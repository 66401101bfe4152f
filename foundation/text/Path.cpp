#include "foundation/text/Path.h"

namespace foundation::Path {
namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

std::string lastComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string deletingLastComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return std::string(withoutTrailingSlashes(path.substr(0, slash == 0 ? 1 : slash)));
}

std::string deletingExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto nameStart = path.rfind('/') + 1;
  const auto dot = path.rfind('.');
  if (dot == std::string_view::npos || dot <= nameStart) return std::string(path);
  return std::string(path.substr(0, dot));
}

std::string appending(std::string_view path, std::string_view component) {
  path = withoutTrailingSlashes(path);
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  if (path.empty()) return std::string(component);
  std::string joined(path);
  if (joined.back() != '/') joined += '/';
  return joined.append(component);
}

}  // namespace foundation::Path
