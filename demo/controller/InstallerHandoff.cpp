#include "demo/controller/InstallerHandoff.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <chrono>
#include <utility>

#include "protocol/Credentials.h"
#include "protocol/LaunchArguments.h"

using platform::AuthorizationExternalForm;

namespace {

constexpr std::chrono::seconds patience{10};

// "r: {{x, y}, {w, h}}"
QString frameArgument(const foundation::Rect& frame) {
  return QString("r: {{%1, %2}, {%3, %4}}")
      .arg(frame.origin.x)
      .arg(frame.origin.y)
      .arg(frame.size.width)
      .arg(frame.size.height);
}

QString argument(const char* name) { return QString("-%1").arg(name); }

QStringList argumentsFor(const InstallerTask& task) {
  QStringList arguments;
  if (task.newBundle) arguments << argument(protocol::sourcePathArgument) << QString::fromStdString(*task.newBundle);
  arguments << argument(protocol::trashPathArgument) << QString::fromStdString(task.installedBundle);
  if (task.isUpdate) arguments << argument(protocol::isUpdateArgument) << "YES";
  if (task.mainFrame) arguments << argument(protocol::mainFrameArgument) << frameArgument(*task.mainFrame);
  return arguments;
}

// The connection that owns `name`, when it is that process's.
QString connectionOf(const QString& name, qint64 process) {
  QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
  if (bus == nullptr) return {};
  const QDBusReply<QString> owner = bus->serviceOwner(name);
  if (!owner.isValid()) return {};
  const QDBusReply<uint> number = bus->servicePid(owner.value());
  return number.isValid() && number.value() == process ? owner.value() : QString();
}

}  // namespace

InstallerHandoff::InstallerHandoff(platform::Linux::AuthorizationServices& authorizationServices,
                                   platform::Linux::DistributedNotificationCenter& center)
    : _authorizationServices(authorizationServices), _center(center) {
  _watcher.setConnection(QDBusConnection::sessionBus());
  _watcher.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
  _patience.setSingleShot(true);
  QObject::connect(&_watcher, &QDBusServiceWatcher::serviceRegistered, &_watcher, [this] { look(); });
  QObject::connect(&_patience, &QTimer::timeout, &_patience, [this] { finishWaiting({}); });
}

InstallerHandoff::~InstallerHandoff() {
  if (_authorization != 0) _authorizationServices.free(_authorization, platform::kAuthorizationFlagDefaults);
}

bool InstallerHandoff::createSession() {
  return _authorization != 0 || _authorizationServices.create(platform::kAuthorizationFlagDefaults, _authorization) ==
                                    platform::errAuthorizationSuccess;
}

bool InstallerHandoff::obtainRights() {
  if (!createSession()) return false;
  platform::AuthorizationItem item{.name = platform::kAuthorizationRightExecute};
  const auto flags = platform::kAuthorizationFlagExtendRights | platform::kAuthorizationFlagPreAuthorize |
                     platform::kAuthorizationFlagInteractionAllowed;
  return _authorizationServices.copyRights(_authorization, {.count = 1, .items = &item}, flags) ==
         platform::errAuthorizationSuccess;
}

std::optional<qint64> InstallerHandoff::startInstaller(const platform::Bundle& installer, const InstallerTask& task) {
  const auto name = installer.infoString("CFBundleExecutable");
  if (!name) return std::nullopt;
  QProcess process;
  process.setProgram(QString::fromStdString(installer.bundlePath() + "/Contents/Linux/" + *name));
  process.setArguments(argumentsFor(task));
  // Not in a folder that is about to be replaced.
  process.setWorkingDirectory("/");
  qint64 number = 0;
  return process.startDetached(&number) ? std::optional(number) : std::nullopt;
}

void InstallerHandoff::whenInstallerListens(const platform::Bundle& installer, qint64 process, Listens listens) {
  _name = QString::fromStdString(installer.bundleIdentifier().value_or(""));
  _process = process;
  _listens = std::move(listens);
  _watcher.setWatchedServices({_name, nameOfInstaller()});
  _patience.start(patience);
  // It may have been quicker than the watcher.
  QTimer::singleShot(0, &_watcher, [this] { look(); });
}

QString InstallerHandoff::nameOfInstaller() const {
  return QString::fromStdString(platform::Linux::nameOfProcess(_name.toStdString(), static_cast<pid_t>(_process)));
}

void InstallerHandoff::look() {
  // The process is held first: the connection that is then seen to be its own cannot be that of a later process with the
  // same number.
  posix::Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(_process), 0)));
  // Another installer may have the common name, while it still shows an alert.
  QString connection = connectionOf(nameOfInstaller(), _process);
  if (connection.isEmpty()) connection = connectionOf(_name, _process);
  if (!pidfd || connection.isEmpty()) return;
  _pidfd = std::move(pidfd);
  finishWaiting(connection);
}

void InstallerHandoff::finishWaiting(const QString& connection) {
  if (!_listens) return;
  _patience.stop();
  _watcher.setWatchedServices({});
  std::exchange(_listens, nullptr)(connection);
}

std::optional<AuthorizationExternalForm> InstallerHandoff::externalForm() {
  AuthorizationExternalForm form;
  if (!createSession()) return std::nullopt;
  const auto status = _authorizationServices.makeExternalFormFor(_authorization, _pidfd.get(), form);
  return status == platform::errAuthorizationSuccess ? std::optional(form) : std::nullopt;
}

bool InstallerHandoff::send(const AuthorizationExternalForm& form, const QString& connection) {
  foundation::Notification notification{.name = protocol::credentialsNotification, .object = {}, .userInfo = {}};
  notification.userInfo.emplace(protocol::credentialsKey,
                                foundation::PropertyList::Data(form.bytes.begin(), form.bytes.end()));
  return _center.postTo(notification, connection.toStdString());
}

bool InstallerHandoff::handOver(const QString& connection) {
  const auto form = externalForm();
  return form && send(*form, connection);
}
