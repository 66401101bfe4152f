#pragma once
// The user's session and machine in memory: other applications, notifications between programs, services, the shell, the
// system log, bundles and defaults. One thread.
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include "platform/Bundle.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/ServiceManagement.h"
#include "platform/Shell.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "platform/fake/CallJournal.h"
#include "platform/fake/FakeRunLoop.h"

namespace platform::fake {

class FakeUserDefaults final : public UserDefaults {
 public:
  [[nodiscard]] std::optional<foundation::PropertyList::Value> objectForKey(std::string_view key) const override;
  bool setObject(std::string_view key, const foundation::PropertyList::Value& value) override;
  bool removeObject(std::string_view key) override;

  // A change made here directly is another program's, which the generation does not count.
  foundation::PropertyList::Dictionary values;
  bool refusesToStore = false;
};

// A centre with which all programs of the session are this one. A notification arrives from the run loop.
class FakeDistributedNotificationCenter final : public DistributedNotificationCenter, public Journaled {
 public:
  explicit FakeDistributedNotificationCenter(FakeRunLoop& runLoop, CallJournal* journal = nullptr)
      : Journaled(journal), _runLoop(runLoop) {}
  void addObserver(std::string_view name, foundation::NotificationHandler handler) override;
  bool post(const foundation::Notification& notification) override;

  bool isConnected = true;
  std::vector<std::string> observed;
  std::vector<foundation::Notification> posted;

 private:
  FakeRunLoop& _runLoop;
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

  using Strings = std::map<std::string, std::string, std::less<>>;

  std::string path = "/Apps/Installer.app";
  foundation::PropertyList::Dictionary info;
  Strings resources;                                   // "name" or "name.type" to full path
  Strings strings;                                     // the default table
  std::map<std::string, Strings, std::less<>> tables;  // the others, by name
  std::vector<std::string> localizations{"en"};
};

class FakeBundles final : public Bundles {
 public:
  [[nodiscard]] const Bundle& mainBundle() const override { return main; }
  [[nodiscard]] std::shared_ptr<const Bundle> bundleWithPath(std::string_view path) const override;

  FakeBundle main;
  std::map<std::string, std::shared_ptr<FakeBundle>, std::less<>> others;
};

struct FakeRunningApplication final : RunningApplication {
  bool terminate() override;

  bool canBeAsked = true;
  bool quitsWhenAsked = false;
  bool isRunning = true;
  int quitRequests = 0;
  std::function<void()> onQuitRequest;  // runs inside each request
};

class FakeWorkspace final : public Workspace, public Journaled {
 public:
  using Journaled::Journaled;
  [[nodiscard]] std::vector<std::shared_ptr<RunningApplication>> runningApplications(
      std::string_view bundleIdentifier) const override;
  // Fails when no application is known at the path.
  bool launchApplication(const std::string& path, std::uint32_t options, const LaunchConfiguration* configuration) override;

  struct Launch {
    std::string path;
    std::uint32_t options;
    std::optional<std::vector<std::string>> arguments;  // nothing when no configuration was given
  };
  std::map<std::string, std::string> applications;  // path to bundle identifier
  std::map<std::string, std::vector<std::shared_ptr<FakeRunningApplication>>, std::less<>> running;
  std::vector<Launch> launches;  // failed ones too
  std::function<void()> onLaunch;
};

class FakeServiceManagement final : public ServiceManagement, public Journaled {
 public:
  using Journaled::Journaled;
  [[nodiscard]] std::optional<foundation::PropertyList::Dictionary> copyJobDictionary(
      const std::string& label) const override;

  bool isReachable = true;
  std::map<std::string, foundation::PropertyList::Dictionary> jobs;
  mutable std::vector<std::string> asked;
};

class FakeShell final : public Shell, public Journaled {
 public:
  using Journaled::Journaled;
  int system(const std::string& commandLine) override;

  std::vector<std::string> commandLines;
  int status = 0;
  std::function<void(const std::string&)> whileRunning;  // runs inside each call
};

class FakeSystemLog final : public SystemLog {
 public:
  void log(std::string_view line) override;

  std::vector<std::string> lines;  // read by one thread while no other logs

 private:
  std::mutex _mutex;
};

}  // namespace platform::fake
