#pragma once
// The version of an application bundle as numbers. Any thread.
#include <cstdint>

#include "platform/Bundle.h"

// What a version does not say is 0.
struct KTAppVersion {
  std::uint64_t major = 0;
  std::uint64_t minor = 0;
  std::uint64_t build = 0;
  char16_t qfe = 0;  // the one letter or digit behind the build number
  bool operator==(const KTAppVersion&) const = default;
};

namespace NSBundle::Kelto {

// "CFBundleVersion" taken apart at its dots, afresh at every call: "4.2.1234b" gives 4, 2, 1234 and 'b'. What cannot be
// read is logged as an error, to both loggers, and stays 0. Numbers are read as the platform's scanner reads them: they
// stop at the signed 64-bit limits, and one with a minus sign is taken modulo 2^64.
KTAppVersion appVersion(const platform::Bundle& bundle);

}  // namespace NSBundle::Kelto
