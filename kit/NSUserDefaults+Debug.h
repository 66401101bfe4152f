#pragma once
// The debug switches of the application, honoured in pre-release builds only: if the main bundle is a release, every getter
// answers its default, whatever is stored. Setters store in any build.
//
// Any thread that may use the given user defaults.
#include <cstdint>
#include <string_view>

#include "platform/Bundle.h"
#include "platform/UserDefaults.h"

namespace NSUserDefaults::Debug {

inline constexpr std::string_view inAppDebugOptionsKey = "KTInAppDebugOptionsEnabled";
inline constexpr std::string_view debugKey = "KTDebugEnabled";
inline constexpr std::string_view loggingLevelKey = "KTLoggingLevel";
inline constexpr std::string_view purgeCachesKey = "KTPurgeCachesOnStartup";
inline constexpr std::string_view purgePreferencesKey = "KTPurgePreferencesOnStartup";

// The threshold if debugging is off or no level is stored: warnings and anything graver.
inline constexpr std::int64_t defaultLoggingLevel = 4;

// "KTInAppDebugOptionsEnabled" if it is present, else "KTDebugEnabled" if that is present, else false.
bool isInAppDebuggingEnabled(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle);

bool cachesPurgedOnStartup(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle);
void setCachesPurgedOnStartup(platform::UserDefaults& defaults, bool purged);
bool preferencesPurgedOnStartup(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle);
void setPreferencesPurgedOnStartup(platform::UserDefaults& defaults, bool purged);

// The threshold of KTLogger. Level 0 cannot be stored: setting it removes the stored level.
std::int64_t loggingLevel(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle);
void setLoggingLevel(platform::UserDefaults& defaults, std::int64_t level);

// Removes the stored logging level, and nothing else.
void resetDebugDefaults(platform::UserDefaults& defaults);

}  // namespace NSUserDefaults::Debug
