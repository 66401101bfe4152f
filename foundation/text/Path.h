#pragma once
// Path strings, by text alone: nothing here asks the file system. Pure; any thread.
#include <string>
#include <string_view>

namespace foundation::Path {

// "/Applications/App.app" and "/Applications/App.app/" give "App.app"; "/" gives "/"; "" gives "".
std::string lastComponent(std::string_view path);
// "/Applications/App.app" gives "/Applications"; "/App.app" gives "/"; "App.app" gives "".
std::string deletingLastComponent(std::string_view path);
// "App.app" gives "App"; a name that is all extension (".app") keeps it.
std::string deletingExtension(std::string_view path);
// Joined with exactly one slash between them.
std::string appending(std::string_view path, std::string_view component);

}  // namespace foundation::Path
