#include "privileged/tool/ServerUpgrade.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "privileged/tool/Account.h"
#include "privileged/tool/BundleItem.h"
#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/FileContents.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/Locations.h"
#include "privileged/tool/ServerBrand.h"
#include "privileged/tool/ServerUnit.h"
#include "privileged/tool/ServiceManager.h"
#include "privileged/tool/SignOfLife.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

constexpr std::string_view serverFolder = "Contents/Resources/LibraryServer";

struct ServerFile {
  std::string name;  // in the bundle's server folder
  std::string destination;
  mode_t mode;
};
constexpr mode_t programMode = 0755;
constexpr mode_t definitionMode = 0644;
constexpr const char* unitFolder = "/etc/systemd/system/";

// A server's files and where they lie: nothing of this comes from the bundle.
struct ServerPlaces {
  explicit ServerPlaces(protocol::Branding::Server named) : server(std::move(named)) {}

  protocol::Branding::Server server;
  std::string unit = server.label + ".service";
  std::string unitPath = unitFolder + unit;
  std::array<ServerFile, 3> files{
      {below(server.program, programMode), below(server.definition, definitionMode), {unit, unitPath, definitionMode}}};

 private:
  static ServerFile below(const std::string& path, mode_t mode) {
    return {path.substr(path.rfind('/') + 1), std::string(libraryFolderPath) + "/" + path, mode};
  }
};

// The bundle that a server comes with, and where it lies.
struct ServerBundle {
  std::string path;
  AcceptedBundle accepted;
};

bool hasAccessList(int file) {
  return ::fgetxattr(file, "system.posix_acl_access", nullptr, 0) >= 0 || (errno != ENODATA && errno != EOPNOTSUPP);
}

// Under the umask 002, which goes with private groups, a file can be written by its group, and that is the user alone. An
// access list may give the group's right to somebody else.
bool isOpenToOthers(int file, struct stat status, uid_t user) {
  if (!hasAccessList(file) && isPrivateGroupOf(user, status.st_gid)) status.st_mode &= ~static_cast<mode_t>(S_IWGRP);
  return canBeWrittenByOthers(status, user);
}

// Root is going to run these files: only root and the user who asked may be able to write them.
posix::Descriptor openServerFile(const std::string& bundle, const ServerFile& file, const PathWalk& walk) {
  const auto source = walk.locate(bundle + "/" + std::string(serverFolder) + "/" + file.name);
  posix::Descriptor opened(
      ::openat(source.folder.get(), source.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!opened) failWithSystemError("cannot open " + source.path);
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) throw Failure("not a file: " + source.path);
  if (isOpenToOthers(opened.get(), status, walk.user())) throw Failure("others can write " + source.path);
  if (file.mode == programMode && (status.st_mode & S_IXUSR) == 0) throw Failure("not executable: " + source.path);
  return opened;
}

// One file: the new one made beside the old, which keeps a second name until all is decided.
class FileUpgrade {
 public:
  FileUpgrade(const ServerBundle& bundle, const ServerFile& file, const ServerPlaces& places, const PathWalk& walk)
      : _destination(cleared(walk.locate(file.destination), walk)),
        _staging(_destination),
        _folder(_destination.openFolder()) {
    const auto source = openServerFile(bundle.path, file, walk);
    const auto old = _destination.status();
    if (old && !S_ISREG(old->st_mode)) throw Failure("not a file: " + _destination.path);
    _hadOld = old.has_value();
    if (_hadOld && ::linkat(_folder.get(), _destination.name.c_str(), _staging.folder(), Staging::oldItem, 0) != 0) {
      failWithSystemError("cannot keep " + _destination.path);
    }
    write(source.get(), bundle.accepted, file, places);
    _staging.noteUndo(_destination.name);
  }

  void install() {
    if (::renameat(_staging.folder(), Staging::newItem, _folder.get(), _destination.name.c_str()) != 0) {
      failWithSystemError("cannot replace " + _destination.path);
    }
    _installed = true;
    syncFolder(_folder.get());
  }

  // The new file stays, also for whoever finds the staging folder.
  void decide() { _staging.forgetUndo(); }

  // False when the old file could not be put back; it stays in the staging folder then.
  bool restore() {
    if (!_installed) return true;
    const char* name = _destination.name.c_str();
    const bool done = _hadOld ? ::renameat(_staging.folder(), Staging::oldItem, _folder.get(), name) == 0
                              : ::unlinkat(_folder.get(), name, 0) == 0;
    if (!done) _staging.keep();
    syncDescriptor(_folder.get());
    return done;
  }

 private:
  static Location cleared(Location destination, const PathWalk& walk) {
    Staging::clearLeftovers(destination, walk);
    return destination;
  }
  // Verifies root's own copy, and reads the unit from it.
  void write(int source, const AcceptedBundle& bundle, const ServerFile& file, const ServerPlaces& places) const {
    const posix::Descriptor made(
        ::openat(_staging.folder(), Staging::newItem, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!made || ::fstat(source, &status) != 0) failWithSystemError("cannot write beside " + _destination.path);
    FileContents().copy(source, made.get(), status, _destination.path);
    if (bundle.manifest) verifyContents(made.get(), *bundle.manifest, std::string(serverFolder) + "/" + file.name);
    if (file.destination == places.unitPath) replaceByUnit(made.get(), bundle.identity, places);
    if (::fchmod(made.get(), file.mode) != 0 || syncDescriptor(made.get()) != 0)
      failWithSystemError("cannot write beside " + _destination.path);
  }
  void replaceByUnit(int file, const BundleIdentity& bundle, const ServerPlaces& places) const {
    ::lseek(file, 0, SEEK_SET);
    const auto unit = serverUnitFor(contentsOfFile(file, maximumServerUnitBytes, places.unit), bundle, places.server);
    const auto length = static_cast<ssize_t>(unit.size());
    if (::ftruncate(file, 0) != 0 || ::pwrite(file, unit.data(), unit.size(), 0) != length)
      failWithSystemError("cannot write beside " + _destination.path);
  }

  Location _destination;
  Staging _staging;
  posix::Descriptor _folder;
  bool _hadOld = false;
  bool _installed = false;
};

using FileUpgrades = std::vector<std::unique_ptr<FileUpgrade>>;

// A job was killed: while the first file has its note nothing was decided, and all the old ones come back, it last.
void settleKilledUpgrade(const ServerPlaces& places, const PathWalk& walk) {
  const auto& files = places.files;
  const bool isUndecided = Staging::hasUndo(walk.locate(files.front().destination));
  for (auto file = files.rbegin(); file != files.rend(); ++file)
    Staging::settleUndo(walk.locate(file->destination), isUndecided);
}

// The bundle of the server that runs, as its unit tells.
std::optional<BundleIdentity> installedBundle(const ServerPlaces& places, const PathWalk& walk) {
  const auto unit = walk.locate(places.unitPath);
  const posix::Descriptor file(
      ::openat(unit.folder.get(), unit.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (static_cast<std::size_t>(status.st_size) > maximumServerUnitBytes) return std::nullopt;
  return bundleNamedIn(contentsOfFile(file.get(), maximumServerUnitBytes, places.unit));
}

ServerBundle acceptServerBundle(const Location& application, const std::string& identifier, const ServerPlaces& places,
                                const Request& request) {
  request.bundles.installed = installedBundle(places, request.walk);
  ServerBundle bundle{.path = application.path,
                      .accepted = acceptBundle({application.folder.get(), application.name}, request.bundles.installed,
                                               trustedKeys(), request.rules.signatures())};
  request.bundles.replacement = bundle.accepted.identity;
  // The places were chosen by what the bundle told before anything was verified.
  if (bundle.accepted.identity.identifier != identifier) throw Failure("the identifier of " + bundle.path + " has changed");
  // Root is going to run what the bundle holds, and the user may put any bundle into a listed folder.
  if (isBoundToLocations(request) && !bundle.accepted.manifest)
    throw Failure(bundle.path + " is not signed, and the key \"locations\" is set");
  return bundle;
}

[[noreturn]] void restoreOldServer(const FileUpgrades& files, const Service& service, const std::string& reason) {
  bool restored = service.stop();
  for (const auto& file : files) restored = file->restore() && restored;
  const bool runs = service.startAnew() && restored;
  throw Failure(reason + (runs ? "; the old one runs again" : "; the old one could not be brought back"));
}

}  // namespace

Outcome upgradeServer(const Request& request) {
  const auto application = request.locate(protocol::filePathKey);
  requireItem(application);
  const auto identifier = toldIdentityOf(application.folder.get(), application.name).value_or(BundleIdentity()).identifier;
  const ServerPlaces places(serverOfApplication(identifier));
  settleKilledUpgrade(places, request.walk);
  const auto bundle = acceptServerBundle(application, identifier, places, request);
  FileUpgrades files;
  for (const auto& file : places.files) files.push_back(std::make_unique<FileUpgrade>(bundle, file, places, request.walk));
  const Service service(places.unit);
  if (!service.stop()) restoreOldServer(files, service, "the Library Server does not stop");
  try {
    for (const auto& file : files) file->install();
  } catch (const Failure& failure) {
    restoreOldServer(files, service, failure.what());
  }
  if (!service.startAnew()) restoreOldServer(files, service, "the new Library Server does not run");
  try {
    for (const auto& file : files) file->decide();
  } catch (const Failure& failure) {
    restoreOldServer(files, service, failure.what());
  }
  return {.report = "upgraded the Library Server", .output = "upgraded the Library Server", .afterwards = {}};
}

}  // namespace AssistantTool
