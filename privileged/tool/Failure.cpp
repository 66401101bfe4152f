#include "privileged/tool/Failure.h"

#include <cerrno>
#include <cstring>

namespace AssistantTool {

void failWithSystemError(std::string_view what, int error) {
  throw Failure(std::string(what) + ": " + std::strerror(error));
}

void failWithSystemError(std::string_view what) { failWithSystemError(what, errno); }

}  // namespace AssistantTool
