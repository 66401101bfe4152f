// Any text is a version, as far as it goes.
#include "fuzz/Target.h"
#include "kit/NSBundle+KeltoVersion.h"
#include "platform/Unicode.h"
#include "platform/fake/FakePlatform.h"

namespace {

// A logging level below every message, so that nothing but the parser is at work.
platform::fake::FakePlatform& quietPlatform() {
  static platform::fake::FakePlatform fake;
  fake.enableDebugLogging();
  fake.defaults.values.insert_or_assign("KTLoggingLevel", -1);
  return fake;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static platform::fake::FakePlatform& fake = quietPlatform();
  fake.bundles.main.info.insert_or_assign("CFBundleVersion", fuzz::text(data, size));
  const KTAppVersion version = NSBundle::Kelto::appVersion(fake.bundles.main);
  fuzz::require(version.qfe == 0 || platform::Unicode::isAlphanumeric(version.qfe), "the qfe is a letter or a digit");
  fuzz::require(fake.systemLog.lines.empty(), "nothing is logged below the level");
  return 0;
}
