#pragma once
// The debug switches of the application, honoured in pre-release builds only: in a release build every getter answers its
// default, whatever is stored. Setters do not look at the build type.
//
// Any thread that may use the user defaults given.
#include <cstdint>

#include "platform/UserDefaults.h"

namespace NSUserDefaults::Debug {

// The threshold when debugging is off or none is stored: warnings and what is graver.
inline constexpr std::int64_t defaultLoggingLevel = 4;

// "KTInAppDebugOptionsEnabled" when present, else "KTDebugEnabled" when present, else false.
bool isInAppDebuggingEnabled(const platform::UserDefaults& defaults);

bool cachesPurgedOnStartup(const platform::UserDefaults& defaults);
void setCachesPurgedOnStartup(platform::UserDefaults& defaults, bool purged);
bool preferencesPurgedOnStartup(const platform::UserDefaults& defaults);
void setPreferencesPurgedOnStartup(platform::UserDefaults& defaults, bool purged);

// The threshold of KTLogger. Level 0 cannot be stored: setting it removes the stored level.
std::int64_t loggingLevel(const platform::UserDefaults& defaults);
void setLoggingLevel(platform::UserDefaults& defaults, std::int64_t level);

// Removes the stored logging level, and nothing else.
void resetDebugDefaults(platform::UserDefaults& defaults);

}  // namespace NSUserDefaults::Debug
