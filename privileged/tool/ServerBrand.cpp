#include "privileged/tool/ServerBrand.h"

#include "privileged/tool/Failure.h"
#include "privileged/tool/InformationList.h"
#include "privileged/tool/TrustedFile.h"

namespace AssistantTool {

namespace {

protocol::Branding brandingOfFile(const std::string& contents) {
  std::string cause;
  const auto branding = protocol::brandingOf(stringsOf(contents, protocol::brandingKey::all), cause);
  if (!branding) throw Failure(cause);
  return *branding;
}

}  // namespace

protocol::Branding::Server serverOfApplication(const std::string& identifier, const std::string& folder, uid_t owner) {
  const auto name = identifier + ".plist";
  const TrustedFolder brands(folder, owner);
  const auto contents =
      identifier.empty() || !brands.exists() ? std::nullopt : brands.contents(name, protocol::maximumBrandingBytes);
  if (!contents) return {};
  try {
    const auto branding = brandingOfFile(*contents);
    if (branding.defaultsDomain != identifier) throw Failure("it is the brand of " + branding.defaultsDomain);
    if (!branding.server) throw Failure("it names no server");
    return *branding.server;
  } catch (const Failure& failure) {
    throw Failure(folder + "/" + name + ": " + failure.what());
  }
}

}  // namespace AssistantTool
