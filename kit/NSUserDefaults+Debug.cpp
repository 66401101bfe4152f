#include "kit/NSUserDefaults+Debug.h"

#include "kit/NSBundle+Kelto.h"

namespace NSUserDefaults::Debug {
namespace {

bool isPresent(const platform::UserDefaults& defaults, std::string_view key) {
  return defaults.objectForKey(key).has_value();
}

bool switchForKey(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle, std::string_view key) {
  return isInAppDebuggingEnabled(defaults, mainBundle) && isPresent(defaults, key) && defaults.boolForKey(key);
}

void setSwitch(platform::UserDefaults& defaults, std::string_view key, bool on) {
  if (on)
    defaults.setObject(key, true);
  else
    defaults.removeObject(key);
}

}  // namespace

bool isInAppDebuggingEnabled(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle) {
  if (NSBundle::Kelto::buildType(mainBundle) == KTBuildType::release) return false;
  if (isPresent(defaults, inAppDebugOptionsKey)) return defaults.boolForKey(inAppDebugOptionsKey);
  return isPresent(defaults, debugKey) && defaults.boolForKey(debugKey);
}

bool cachesPurgedOnStartup(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle) {
  return switchForKey(defaults, mainBundle, purgeCachesKey);
}

void setCachesPurgedOnStartup(platform::UserDefaults& defaults, bool purged) {
  setSwitch(defaults, purgeCachesKey, purged);
}

bool preferencesPurgedOnStartup(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle) {
  return switchForKey(defaults, mainBundle, purgePreferencesKey);
}

void setPreferencesPurgedOnStartup(platform::UserDefaults& defaults, bool purged) {
  setSwitch(defaults, purgePreferencesKey, purged);
}

std::int64_t loggingLevel(const platform::UserDefaults& defaults, const platform::Bundle& mainBundle) {
  if (!isInAppDebuggingEnabled(defaults, mainBundle) || !isPresent(defaults, loggingLevelKey)) return defaultLoggingLevel;
  return defaults.integerForKey(loggingLevelKey);
}

void setLoggingLevel(platform::UserDefaults& defaults, std::int64_t level) {
  if (level != 0)
    defaults.setObject(loggingLevelKey, level);
  else
    defaults.removeObject(loggingLevelKey);
}

void resetDebugDefaults(platform::UserDefaults& defaults) { defaults.removeObject(loggingLevelKey); }

}  // namespace NSUserDefaults::Debug
