#pragma once
// The keys of every text that the installer shows, and their look-up. A key that ends in "_1" takes one argument. Main
// thread.
#include <string>
#include <string_view>

#include "kit/KTLocalizer.h"

namespace InstallerTexts {

struct WizardTexts {
  std::string_view title;
  std::string_view body;
  std::string_view nextButton;
};

inline constexpr WizardTexts update{"<ControllerUpdateWizard_Title>", "<ControllerUpdateWizard_Installing>", "<Next>"};
inline constexpr WizardTexts install{"<InstallerInstallKeltoSubtitle>", "<InstallerInstallKeltoBody>", "<Done>"};
inline constexpr WizardTexts uninstall{"<InstallerUninstallKeltoSubtitle>", "<InstallerUninstallKeltoBody>", "<Done>"};

inline constexpr std::string_view cancel = "<Cancel>";
inline constexpr std::string_view ok = "<OK>";

inline constexpr std::string_view unexpectedErrorSubtitle = "<InstallerUnexpectedErrorSubtitle>";
inline constexpr std::string_view unexpectedErrorMessage = "<InstallerUnexpectedErrorMessage>";
inline constexpr std::string_view badPermissionSubtitle = "<InstallerBadPermissionSubtitle>";
inline constexpr std::string_view badPermissionMessage = "<InstallerBadPermissionMessage_1>";
inline constexpr std::string_view runningSubtitle = "<InstallerKeltoRunningSubtitle_1>";
inline constexpr std::string_view runningMessage = "<InstallerKeltoRunningMessage>";
inline constexpr std::string_view unableToUninstallSubtitle = "<InstallerUnableToUninstallSubtitle>";
inline constexpr std::string_view unableToUninstallMessage = "<InstallerUnableToUninstallMessage_1>";

}  // namespace InstallerTexts

// The text for `key`, filled with the arguments.
template <class... Arguments>
std::string localized(std::string_view key, const Arguments&... arguments) {
  return KTLocalizer::sharedLocalizer()->localizedStringForKey(key, arguments...);
}
