#pragma once
// The controller's side of a run of the installer: get the administrator rights, start the installer, hand the rights over.
//
// The installer asks nobody for a password. It takes over the rights of the program that starts it, within 5 seconds of its
// launch, and then asks that program to quit. So a controller does, in this order:
//
//   InstallerHandoff handoff(authorizationServices, notificationCenter);
//   if (!handoff.obtainRights()) ...                                    // may ask the user
//   const auto process = handoff.startInstaller(installer, task);
//   handoff.whenInstallerListens(installer, *process, [&](const QString& connection) { handoff.handOver(connection); });
//
// and goes on running until it is asked to quit (QuitOnRequest.h). Started again by the installer with
// "-KTResumeSelfUpdate YES", it is the new version after a self-update.
//
// Main thread only. obtainRights blocks it for as long as the policy service asks the user, unless the authorization
// services make their calls elsewhere.
#include <QDBusServiceWatcher>
#include <QString>
#include <QTimer>
#include <functional>
#include <optional>
#include <string>

#include "foundation/graphics/Geometry.h"
#include "platform/Bundle.h"
#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/DistributedNotificationCenter.h"
#include "posix/Descriptor.h"

// A task for the installer. Paths are absolute.
struct InstallerTask {
  std::optional<std::string> newBundle;  // nothing: the installed bundle is moved to the Trash
  std::string installedBundle;
  bool isUpdate = false;
  // The controller's window, origin bottom-left: the installer places itself over it. A Wayland client cannot know it.
  std::optional<foundation::Rect> mainFrame;
};

class InstallerHandoff final {
 public:
  // Both outlive this object.
  InstallerHandoff(platform::Linux::AuthorizationServices& authorizationServices,
                   platform::Linux::DistributedNotificationCenter& center);
  // Drops the handle and leaves the rights alone: by now they are the installer's too.
  ~InstallerHandoff();
  InstallerHandoff(const InstallerHandoff&) = delete;
  InstallerHandoff& operator=(const InstallerHandoff&) = delete;

  // Gets the right to run the installer's tool as administrator. False when it was refused.
  bool obtainRights();

  // Starts the installer; its process number, or nothing when it could not be started.
  static std::optional<qint64> startInstaller(const platform::Bundle& installer, const InstallerTask& task);

  // Calls `listens` once, when that process has taken a name of the installer's on the session bus, which it does when it
  // is ready for the rights. The argument is its connection, or empty when it did not appear within 10 seconds.
  using Listens = std::function<void(const QString& connection)>;
  void whenInstallerListens(const platform::Bundle& installer, qint64 process, Listens listens);

  // Sends the rights to that connection and to nobody else. False when they could not be sent.
  bool handOver(const QString& connection);

  // The two halves of handOver: the rights in external form, 32 bytes that only the installer's process can use, once and
  // within a minute, and their delivery.
  [[nodiscard]] std::optional<platform::AuthorizationExternalForm> externalForm();
  bool send(const platform::AuthorizationExternalForm& form, const QString& connection);

 private:
  bool createSession();
  [[nodiscard]] QString nameOfInstaller() const;
  void look();
  void finishWaiting(const QString& connection);

  platform::Linux::AuthorizationServices& _authorizationServices;
  platform::Linux::DistributedNotificationCenter& _center;
  platform::AuthorizationRef _authorization = 0;
  // The wait for the installer.
  QDBusServiceWatcher _watcher;
  QTimer _patience;
  QString _name;
  qint64 _process = 0;
  posix::Descriptor _pidfd;  // of the installer, once it listens
  Listens _listens;
};
