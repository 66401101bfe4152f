// The tables of the protocol. The generator writes them in C; the header declares them, so that other files see them in C++
// too.
#include <xdg-foreign-unstable-v2.h>

#include <xdg-foreign-unstable-v2.c>
