#pragma once
// The one object that holds administrator rights: an authorization session with the single right "system.privilege.admin",
// the exchange with the assistant tool that does the privileged work, and the five file operations that go through it.
//
// Main thread, except sharedInstance, which any thread may call. Operations report success as a boolean
// and never throw; whatever fails is in the platform's report of the run, with its cause. A job blocks the caller until the
// tool has answered; the platform keeps the window alive meanwhile.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/runtime/NotificationCenter.h"
#include "platform/Platform.h"
#include "protocol/InstructionArchive.h"

class KMAuthorization {
 public:
  using Instructions = InstructionArchive::Instructions;

  // The one instance of the process, made at the first call; nullptr for the rest of the process when no session could be
  // made then. Uses the installed platform. Owned by the process.
  static KMAuthorization* sharedInstance();

  // A new object with an empty session, observing the application's termination from then on; nullptr when the platform
  // gives no session. `platform` outlives the object.
  static std::shared_ptr<KMAuthorization> init(platform::Platform& platform);

  KMAuthorization(const KMAuthorization&) = delete;
  KMAuthorization& operator=(const KMAuthorization&) = delete;

  // The file name of the tool among the main bundle's resources. Setting an equal name does nothing; another one looks the
  // tool up and makes its path the value of the right. A name without an executable tool leaves the value of the right
  // empty.
  [[nodiscard]] const std::optional<std::string>& toolName() const { return _toolName; }
  void setToolName(const std::optional<std::string>& toolName);

  // The session in external form, exactly 32 bytes, or nothing when there is no session to export.
  [[nodiscard]] std::optional<foundation::PropertyList::Data> externalRights() const;
  // Gives up the session held, then adopts the one whose external form is in the first 32 bytes. Shorter data is refused:
  // it adopts nothing, so that authorizing fails as it does with a form that is not good.
  void setExternalRights(const foundation::PropertyList::Data& data);

  // Asks for the right; true when it is held. The prompt never reaches the system's dialog.
  bool authorizeForRootWithPrompt_preauthorize_allowInteraction(std::string_view prompt, bool preauthorize,
                                                                bool allowInteraction);

  // Frees the session and, unless useDefaultFlags is set, destroys its rights for everyone who shares it. True when it was
  // freed or there was none; the session is gone in every case.
  bool releaseRights();
  // The observer of the application's termination.
  void releaseRights(const foundation::Notification& notification);

  [[nodiscard]] bool useDefaultFlags() const { return _useDefaultFlags; }
  void setUseDefaultFlags(bool useDefaultFlags) { _useDefaultFlags = useDefaultFlags; }

  // One job of the tool; true when its result file says so. `output`, when given, receives the text of the output file, or
  // nothing when the file vanished or does not hold UTF-8. The caller's instructions are not changed; the job's files are
  // removed.
  bool resultFromToolWithPrompt_instructions_output(std::string_view prompt, const Instructions& instructions,
                                                    std::optional<std::string>* output);

  // The file operations: true when the tool did the job. A missing path sends an incomplete instruction, which the tool
  // refuses.
  bool trashItemAtPath(const std::optional<std::string>& path);
  bool removeItemAtPath(const std::optional<std::string>& path);
  // The first argument is the source, the second the destination.
  bool copyItemAtPath_toPath(const std::optional<std::string>& source, const std::optional<std::string>& destination);
  bool moveItemAtPath_toPath(const std::optional<std::string>& source, const std::optional<std::string>& destination);
  // The first argument is the item being replaced, the second the new item that takes its place.
  bool replaceItemAtPath_withItemAtPath(const std::optional<std::string>& path,
                                        const std::optional<std::string>& replacement);

  // The steps of a job, in calling order from the outside in.
  std::optional<std::string> _outputFromToolWithPrompt_andInstructions(std::string_view prompt,
                                                                       const Instructions& instructions);
  std::optional<std::string> _outputFromToolWithInstructions(const Instructions& instructions);
  void _createOutputFileAtPath(const std::optional<std::string>& path);
  // The path of the tool in the main bundle, when it is an executable file.
  [[nodiscard]] std::optional<std::string> _pathForTool() const;

  // The right as it is asked for: always one item, always the administrator right.
  [[nodiscard]] const platform::AuthorizationRights& rights() const { return _rights; }

 private:
  KMAuthorization(platform::Platform& platform, platform::AuthorizationRef authorization);

  static std::string causeOf(const platform::Platform& platform, platform::AuthorizationStatus status);
  bool obtainRight(bool preauthorize, bool allowInteraction);
  void reportFailedJob(const Instructions& instructions);

  platform::Platform& _platform;
  platform::AuthorizationRef _authorization;
  std::optional<std::string> _toolName;
  // Every tool path that the right has ever pointed at; earlier ones are kept, because the right may still point there.
  std::vector<std::unique_ptr<char[]>> _toolPaths;
  platform::AuthorizationItem _item;
  platform::AuthorizationRights _rights;
  bool _useDefaultFlags = false;
  // Why the last operation failed, as far as it is known yet.
  platform::Ending _ending = platform::Ending::failed;
  std::string _cause;
  std::string _causeWithoutSession;
};
