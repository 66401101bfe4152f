#include "privileged/tool/ServerUpgrade.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "privileged/tool/Failure.h"
#include "privileged/tool/FileContents.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/ServiceManager.h"

namespace AssistantTool {
namespace {

constexpr const char* Unit = "com.kelto.KeltoLibraryServer.service";
constexpr std::string_view ServerFolder = "/Contents/Resources/LibraryServer";

struct ServerFile {
  const char* name;  // in the bundle's server folder
  const char* destination;
  mode_t mode;
};
constexpr mode_t ProgramMode = 0755;
constexpr mode_t DefinitionMode = 0644;
constexpr std::array<ServerFile, 3> ServerFiles{{
    {"KeltoLibraryServer", "/Library/Application Support/Kelto/KeltoLibraryServer", ProgramMode},
    {"com.kelto.KeltoLibraryServer.plist", "/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist", DefinitionMode},
    {"com.kelto.KeltoLibraryServer.service", "/etc/systemd/system/com.kelto.KeltoLibraryServer.service", DefinitionMode},
}};

// What root is going to run may be written by nobody but root and the user who asked for it.
FileDescriptor openServerFile(const std::string& folder, const ServerFile& file, const PathWalk& walk) {
  const auto source = walk.locate(folder + "/" + file.name);
  FileDescriptor opened(::openat(source.folder.get(), source.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!opened) failWithSystemError("cannot open " + source.path);
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode)) throw Failure("not a file: " + source.path);
  if (canBeWrittenByOthers(status, walk.user())) throw Failure("others can write " + source.path);
  if (file.mode == ProgramMode && (status.st_mode & S_IXUSR) == 0) throw Failure("not executable: " + source.path);
  return opened;
}

// One file: the new one made beside the old, which keeps a second name until all is decided.
class FileUpgrade {
 public:
  FileUpgrade(const std::string& bundleFolder, const ServerFile& file, const PathWalk& walk)
      : destination_(cleared(walk.locate(file.destination), walk)),
        staging_(destination_),
        folder_(destination_.openFolder()) {
    const auto source = openServerFile(bundleFolder, file, walk);
    const auto old = destination_.status();
    if (old && !S_ISREG(old->st_mode)) throw Failure("not a file: " + destination_.path);
    hadOld_ = old.has_value();
    if (hadOld_ && ::linkat(folder_.get(), destination_.name.c_str(), staging_.folder(), Staging::OldItem, 0) != 0) {
      failWithSystemError("cannot keep " + destination_.path);
    }
    write(source.get(), file.mode);
    staging_.noteUndo(destination_.name);
  }

  void install() {
    if (::renameat(staging_.folder(), Staging::NewItem, folder_.get(), destination_.name.c_str()) != 0) {
      failWithSystemError("cannot replace " + destination_.path);
    }
    installed_ = true;
    syncFolder(folder_.get());
  }

  // The new file stays, also for whoever finds the staging folder.
  void decide() { staging_.forgetUndo(); }

  // False when the old file could not be put back; it stays in the staging folder then.
  bool restore() {
    if (!installed_) return true;
    const char* name = destination_.name.c_str();
    const bool done = hadOld_ ? ::renameat(staging_.folder(), Staging::OldItem, folder_.get(), name) == 0
                              : ::unlinkat(folder_.get(), name, 0) == 0;
    if (!done) staging_.keep();
    ::fsync(folder_.get());
    return done;
  }

 private:
  static Location cleared(Location destination, const PathWalk& walk) {
    Staging::clearLeftovers(destination, walk);
    return destination;
  }
  void write(int source, mode_t mode) const {
    const FileDescriptor made(::openat(staging_.folder(), Staging::NewItem,
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!made || ::fstat(source, &status) != 0) failWithSystemError("cannot write beside " + destination_.path);
    FileContents().copy(source, made.get(), status, destination_.path);
    if (::fchmod(made.get(), mode) != 0 || ::fsync(made.get()) != 0)
      failWithSystemError("cannot write beside " + destination_.path);
  }

  Location destination_;
  Staging staging_;
  FileDescriptor folder_;
  bool hadOld_ = false;
  bool installed_ = false;
};

using FileUpgrades = std::vector<std::unique_ptr<FileUpgrade>>;

// A job was killed: while the first file has its note nothing was decided, and all the old ones come back, it last.
void settleKilledUpgrade(const PathWalk& walk) {
  const bool isUndecided = Staging::hasUndo(walk.locate(ServerFiles.front().destination));
  for (auto file = ServerFiles.rbegin(); file != ServerFiles.rend(); ++file)
    Staging::settleUndo(walk.locate(file->destination), isUndecided);
}

[[noreturn]] void restoreOldServer(const FileUpgrades& files, const Service& service, const std::string& reason) {
  bool restored = service.stop();
  for (const auto& file : files) restored = file->restore() && restored;
  const bool runs = service.startAnew() && restored;
  throw Failure(reason + (runs ? "; the old one runs again" : "; the old one could not be brought back"));
}

}  // namespace

Outcome upgradeServer(const Request& request) {
  const auto application = request.locate("file path");
  requireItem(application);
  settleKilledUpgrade(request.walk);
  FileUpgrades files;
  for (const auto& file : ServerFiles) {
    files.push_back(std::make_unique<FileUpgrade>(application.path + std::string(ServerFolder), file, request.walk));
  }
  const Service service(Unit);
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
