#pragma once
// The arguments that one program of the system starts another with, in the form "-Name value" of the user defaults'
// argument domain. Constants; any thread.

namespace protocol {

// From the controller to the installer. With a source path it installs, without one it removes what lies at the trash path.
inline constexpr const char* sourcePathArgument = "KMInstallToolSrcPath";
inline constexpr const char* trashPathArgument = "KMInstallToolTrashPath";
inline constexpr const char* isUpdateArgument = "KMInstallToolIsUpdate";
inline constexpr const char* mainFrameArgument = "KMInstallToolMainFrame";

// From the installer to the controller that it starts again after an update, with the value "YES".
inline constexpr const char* resumeArgument = "KTResumeSelfUpdate";

}  // namespace protocol
