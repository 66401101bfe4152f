#pragma once
// Replaced bundles that are kept: one folder each, below the tool's notes, called by a number that counts up. It holds the
// bundle under its own file name, and two symbolic links whose targets are notes. Constants; any thread.

namespace protocol {

// Beside the journal of the tool: in /var/lib/kelto, or "kelto" of a user's state folder for that user's own jobs.
inline constexpr const char* keptFolder = "kept-bundles";

inline constexpr const char* keptPlaceNote = ".kept-from";               // the folder that the bundle lay in
inline constexpr const char* keptApplicationNote = ".kept-application";  // its identifier

}  // namespace protocol
