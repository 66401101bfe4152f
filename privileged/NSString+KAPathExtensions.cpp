#include "privileged/NSString+KAPathExtensions.h"

#include "foundation/text/Path.h"
#include "platform/Platform.h"

namespace NSString::KAPathExtensions {

std::string temporaryPath() {
  const auto& files = platform::current().fileManager;
  return files.unusedName(foundation::Path::appending(files.temporaryDirectory(), "/KeltoXXXXXXXXXX"));
}

}  // namespace NSString::KAPathExtensions
