#include "platform/fake/FakePlatform.h"

namespace platform::fake {

void FakePlatform::enableDebugLogging() {
  bundles.main.info.insert_or_assign("KTBuildType", "development");
  defaults.setObject("KTDebugEnabled", true);
  defaults.setObject("KTLoggingLevel", 7);
}

}  // namespace platform::fake
