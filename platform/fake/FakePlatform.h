#pragma once
// The platform for tests: a virtual clock, recorded windows and alerts, in-memory files and defaults. Nothing here touches
// the machine. One thread.
//
// Make a FakePlatform, set up its parts, and it is installed as the process's platform for as long as it lives.
#include <deque>
#include <set>

#include "platform/Platform.h"
#include "platform/fake/FakeLogging.h"

namespace platform::fake {

class FakeRunLoop final : public foundation::RunLoop {
 public:
  [[nodiscard]] foundation::Date currentDate() const override { return _now; }
  void performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) override;
  void cancelPreviousPerformRequests(const void* target) override;
  std::shared_ptr<foundation::Timer> scheduledTimer(foundation::Seconds interval, bool repeats,
                                                    std::function<void(foundation::Timer&)> action) override;

  // Moves the clock forward, running what falls due in order, each at its own time.
  void advance(foundation::Seconds duration);
  // Runs what is due now (delays of zero).
  void runPending() { advance(foundation::Seconds(0)); }

  // What is scheduled: the delays of the delayed calls for `target`, measured from now, soonest first.
  [[nodiscard]] std::vector<foundation::Seconds> pendingDelays(const void* target) const;
  [[nodiscard]] std::size_t pendingCount() const { return _events.size(); }
  // The interval of every timer that is scheduled and valid.
  [[nodiscard]] std::vector<foundation::Seconds> timerIntervals() const;

 private:
  struct Event {
    foundation::Date due;
    std::uint64_t order;
    const void* target;
    std::function<void()> action;
  };
  class FakeTimer;

  void schedule(foundation::Date due, const void* target, std::function<void()> action);
  void scheduleTick(const std::shared_ptr<FakeTimer>& timer, foundation::Date due);

  foundation::Date _now{std::chrono::seconds(1'700'000'000)};
  std::uint64_t _order = 0;
  std::vector<Event> _events;
  std::vector<std::weak_ptr<FakeTimer>> _timers;
};

class FakeUserDefaults final : public UserDefaults {
 public:
  [[nodiscard]] std::optional<foundation::PropertyList::Value> objectForKey(std::string_view key) const override;
  bool setObject(std::string_view key, const foundation::PropertyList::Value& value) override;
  bool removeObject(std::string_view key) override;
  [[nodiscard]] std::uint64_t generation() const override { return _generation; }

  // A change made here directly is another program's, which the generation does not count.
  foundation::PropertyList::Dictionary values;

 private:
  std::uint64_t _generation = 1;
};

class FakeDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  void addObserver(std::string_view name, foundation::NotificationHandler handler) override;
  bool post(const foundation::Notification& notification) override;  // delivers at once, and is recorded

  std::vector<std::string> observed;
  std::vector<foundation::Notification> posted;

 private:
  foundation::NotificationCenter _center;
};

class FakeBundle final : public Bundle {
 public:
  [[nodiscard]] std::string bundlePath() const override { return path; }
  [[nodiscard]] const foundation::PropertyList::Dictionary& infoDictionary() const override { return info; }
  [[nodiscard]] std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const override;
  [[nodiscard]] std::string localizedStringForKey(std::string_view key, std::string_view value,
                                                  std::string_view table) const override;
  [[nodiscard]] std::vector<std::string> preferredLocalizations() const override { return localizations; }

  std::string path = "/Apps/Installer.app";
  foundation::PropertyList::Dictionary info;
  std::map<std::string, std::string, std::less<>> resources;  // "name" or "name.type" to full path
  std::map<std::string, std::string, std::less<>> strings;    // the default table
  std::vector<std::string> localizations{"en"};
};

class FakeBundles final : public Bundles {
 public:
  [[nodiscard]] const Bundle& mainBundle() const override { return main; }
  [[nodiscard]] std::shared_ptr<const Bundle> bundleWithPath(std::string_view path) const override;

  FakeBundle main;
  std::map<std::string, std::shared_ptr<FakeBundle>, std::less<>> others;
};

// Files in memory. A path names a document or a folder; parents are not checked except where an operation makes folders.
class FakeFileManager final : public FileManager {
 public:
  struct Item {
    bool isDirectory = false;
    std::string contents{};
    FileAttributes attributes{};
    bool isExecutable = false;
  };

  [[nodiscard]] bool fileExistsAtPath(const std::string& path, bool* isDirectory) const override;
  [[nodiscard]] bool isExecutableFileAtPath(const std::string& path) const override;
  bool createFileAtPath(const std::string& path, const FileAttributes& attributes) override;
  bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories, const FileAttributes& attributes,
                             Error* error) override;
  bool setAttributes(const FileAttributes& attributes, const std::string& path) override;
  bool removeItemAtPath(const std::string& path) override;
  [[nodiscard]] std::optional<std::string> contentsAtPath(const std::string& path) const override;
  [[nodiscard]] std::string temporaryDirectory() const override { return temporaryFolder; }
  [[nodiscard]] std::string unusedName(const std::string& nameTemplate) const override;
  [[nodiscard]] std::vector<std::string> searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                                  bool expandTilde) const override;
  [[nodiscard]] std::optional<std::string> volumeURLForPath(const std::string& path) const override;

  void addFile(const std::string& path, std::string contents = {}, bool isExecutable = false);
  void addFolder(const std::string& path) { items[path].isDirectory = true; }

  std::map<std::string, Item> items;
  std::string temporaryFolder = "/tmp";
  std::map<std::pair<SearchPathDirectory, SearchPathDomainMask>, std::vector<std::string>> searchPaths;
  std::map<std::string, std::string> volumes;  // path prefix to volume URL
  std::optional<Error> createDirectoryError;   // makes every createDirectoryAtPath fail
  std::vector<std::string> removed;
  mutable std::vector<std::string> existenceTests;  // every path asked for, in order

 private:
  mutable std::uint64_t _names = 0;
};

class FakeWindow final : public Window {
 public:
  [[nodiscard]] foundation::Rect frame() const override { return currentFrame; }
  void setFrame(const foundation::Rect& frame, bool display) override;
  void setFrameOrigin(foundation::Point origin) override;
  void center() override;
  void setTitle(std::string_view text) override { title = text; }
  void makeKeyAndOrderFront() override { isKey = true; }

  foundation::Rect currentFrame{{10, 20}, {400, 250}};
  bool isCentered = false;
  bool isKey = false;
  std::string title;
  std::vector<bool> displays;  // the redisplay flag of every setFrame
};

class FakeTextField final : public TextField {
 public:
  void setStringValue(std::string_view value) override { text = value; }
  std::string text;
};

class FakeButton final : public Button {
 public:
  void setTitle(std::string_view value) override { title = value; }
  std::string title;
};

class FakeProgressIndicator final : public ProgressIndicator {
 public:
  void setUsesThreadedAnimation(bool threaded) override { usesThreadedAnimation = threaded; }
  void startAnimation() override { isAnimating = true; }
  bool usesThreadedAnimation = false;
  bool isAnimating = false;
};

// Alerts are dismissed at once and recorded. Termination runs the will-terminate steps and is counted.
class FakeApplication final : public Application {
 public:
  explicit FakeApplication(foundation::NotificationCenter& center) : _center(center) {}
  void runModal(const Alert& alert) override;
  void terminate(const void* sender) override;

  ApplicationDelegate* delegate = nullptr;  // told of termination when set
  std::vector<Alert> alerts;
  std::function<void(const Alert&)> whileAlertIsUp;  // runs inside runModal
  bool isTerminated = false;
  std::vector<const void*> terminateSenders;

 private:
  foundation::NotificationCenter& _center;
};

// A tool process: takes what is written, answers in the given chunks, each handed out by one or more reads.
class FakeByteStream final : public ByteStream {
 public:
  std::size_t write(const void* bytes, std::size_t length) override;
  std::size_t read(void* buffer, std::size_t capacity) override;
  ~FakeByteStream() override;

  struct Record {
    std::string written;
    std::vector<std::size_t> reads;  // bytes given by every read
    bool isClosed = false;
  };
  std::shared_ptr<Record> record = std::make_shared<Record>();
  std::deque<std::string> chunks;      // what single writes of the tool put on the pipe
  std::size_t writeLimit = SIZE_MAX;   // writes beyond this many bytes in all are cut short
  std::function<void()> beforeRead{};  // the tool at work
};

class FakeAuthorizationServices final : public AuthorizationServices {
 public:
  AuthorizationStatus create(AuthorizationFlags flags, AuthorizationRef& authorization) override;
  AuthorizationStatus makeExternalForm(AuthorizationRef authorization, AuthorizationExternalForm& form) override;
  AuthorizationStatus createFromExternalForm(const AuthorizationExternalForm& form,
                                             AuthorizationRef& authorization) override;
  AuthorizationStatus copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                 AuthorizationFlags flags) override;
  AuthorizationStatus free(AuthorizationRef authorization, AuthorizationFlags flags) override;
  AuthorizationStatus executeWithPrivileges(AuthorizationRef authorization, const std::string& path,
                                            AuthorizationFlags options, std::unique_ptr<ByteStream>& stream) override;

  // Every call in order, as text: "create 0", "copyRights 1 system.privilege.admin 18", "free 1 8", ...
  std::vector<std::string> calls;
  AuthorizationStatus createStatus = errAuthorizationSuccess;
  AuthorizationStatus makeExternalFormStatus = errAuthorizationSuccess;
  AuthorizationStatus createFromExternalFormStatus = errAuthorizationSuccess;
  AuthorizationStatus copyRightsStatus = errAuthorizationSuccess;
  AuthorizationStatus freeStatus = errAuthorizationSuccess;
  AuthorizationStatus executeStatus = errAuthorizationSuccess;
  AuthorizationExternalForm externalForm{};  // handed out by makeExternalForm
  AuthorizationExternalForm adoptedForm{};   // taken by createFromExternalForm
  std::string rightValue;                    // value of the right last asked for
  std::function<std::unique_ptr<ByteStream>()> tool = [] { return std::make_unique<FakeByteStream>(); };

 private:
  AuthorizationRef _next = 1;
};

struct FakeRunningApplication final : RunningApplication {
  bool terminate() override {
    ++quitRequests;
    return true;
  }
  int quitRequests = 0;
};

class FakeWorkspace final : public Workspace {
 public:
  [[nodiscard]] std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

  struct Launch {
    std::string path;
    std::uint32_t options;
    std::optional<std::vector<std::string>> arguments;  // nothing when no configuration was given
  };
  std::map<std::string, std::vector<std::shared_ptr<FakeRunningApplication>>, std::less<>> running;
  std::vector<Launch> launches;
  std::function<void()> onLaunch;
};

class FakeServiceManagement final : public ServiceManagement {
 public:
  [[nodiscard]] std::optional<foundation::PropertyList::Dictionary> copyJobDictionary(
      const std::string& label) const override;

  std::map<std::string, foundation::PropertyList::Dictionary> jobs;
  mutable std::vector<std::string> asked;
};

class FakeShell final : public Shell {
 public:
  int system(const std::string& commandLine) override;

  std::vector<std::string> commandLines;
  int status = 0;
};

class FakeSystemLog final : public SystemLog {
 public:
  void log(std::string_view line) override { lines.emplace_back(line); }

  std::vector<std::string> lines;
};

struct FakeParts {
  FakeRunLoop runLoop;
  FakeUserDefaults defaults;
  foundation::NotificationCenter notificationCenter;
  FakeDistributedNotificationCenter distributedNotificationCenter;
  FakeApplication application{notificationCenter};
  FakeBundles bundles;
  FakeFileManager files;
  FakeAuthorizationServices authorization;
  FakeWorkspace workspace;
  FakeServiceManagement services;
  FakeShell shell;
  FakeSystemLog systemLog;
  FakeClock clock;
  FakeLoggingHost logging;
};

class FakePlatform : public FakeParts {
 public:
  // Lets the debug diagnostics through to `systemLog`: a development build with logging level 7.
  void enableDebugLogging();

  Platform platform{application, runLoop,   defaults,      notificationCenter, distributedNotificationCenter,
                    bundles,     files,     authorization, workspace,          services,
                    shell,       systemLog, &logging.host};

 private:
  Installation _installation{platform};
};

}  // namespace platform::fake
