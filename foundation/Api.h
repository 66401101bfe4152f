#pragma once
// Marks the names that other programs may use of a shared library whose other names are hidden.
#define KELTO_API [[gnu::visibility("default")]]
