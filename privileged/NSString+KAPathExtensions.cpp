#include "privileged/NSString+KAPathExtensions.h"

#include "foundation/text/Path.h"

namespace NSString::KAPathExtensions {

std::string temporaryPath(const platform::FileManager& files) {
  return files.unusedName(foundation::Path::appending(files.temporaryDirectory(), "/KeltoXXXXXXXXXX"));
}

}  // namespace NSString::KAPathExtensions
