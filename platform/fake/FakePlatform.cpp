#include "platform/fake/FakePlatform.h"

#include <type_traits>

namespace platform::fake {
namespace {

template <class Part>
Part& chosen(Part* real, std::type_identity_t<Part>& fake) {
  return real == nullptr ? fake : *real;
}

}  // namespace

Platform platformOf(FakeParts& fakes, const RealParts& real) {
  return {{chosen(real.defaults, fakes.defaults), fakes.notificationCenter, chosen(real.bundles, fakes.bundles),
           chosen(real.files, fakes.files), fakes.systemLog, &chosen(real.loggingHost, fakes.logging.host)},
          chosen(real.application, fakes.application),
          chosen(real.runLoop, fakes.runLoop),
          fakes.distributedNotificationCenter,
          fakes.authorization,
          fakes.workspace,
          fakes.services,
          fakes.shell};
}

void FakePlatform::enableDebugLogging() {
  bundles.main.info.insert_or_assign("KTBuildType", "development");
  defaults.setObject("KTDebugEnabled", true);
  defaults.setObject("KTLoggingLevel", 7);
}

}  // namespace platform::fake
