#pragma once
// The colours that views draw with, named by their role: NSColor::embeddedTextColor() and so on for every row of
// ui/Palette.inc. Each call makes the colour anew; a row that follows another asks that one each time. Pure; any thread.
#include "ui/NSColor+KTColorAdditions.h"

#define KELTO_DECLARE_COLOR(category, name, ...) \
  namespace NSColor {                            \
  inline namespace category {                    \
  foundation::Color name();                      \
  }                                              \
  }
#define GREY KELTO_DECLARE_COLOR
#define RGB KELTO_DECLARE_COLOR
#define SAME KELTO_DECLARE_COLOR
#include "ui/Palette.inc"
#undef GREY
#undef RGB
#undef SAME
#undef KELTO_DECLARE_COLOR
