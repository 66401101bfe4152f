#pragma once
// The version of an application bundle as numbers. Any thread.
#include <cstdint>

#include "platform/Bundle.h"

// Parts that a version lacks are 0.
struct KTAppVersion {
  std::uint64_t major = 0;
  std::uint64_t minor = 0;
  std::uint64_t build = 0;
  char16_t qfe = 0;  // the one letter or digit after the build number
  bool operator==(const KTAppVersion&) const = default;
};

namespace NSBundle::Kelto {

// The parts of "CFBundleVersion", read afresh at every call: "4.2.1234b" gives 4, 2, 1234 and 'b'. An unreadable build
// number or suffix is 0, and is logged as an error to both loggers. Numbers stop at the signed 64-bit limits; a negative
// one is taken modulo 2^64.
KTAppVersion appVersion(const platform::Bundle& bundle);

}  // namespace NSBundle::Kelto
