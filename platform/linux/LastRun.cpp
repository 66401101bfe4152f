#include "platform/linux/LastRun.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "foundation/text/Path.h"
#include "platform/linux/FileManager.h"
#include "platform/linux/LaunchCheck.h"
#include "posix/Descriptor.h"
#include "protocol/LastRun.h"
#include "protocol/LaunchArguments.h"

namespace platform::Linux {
namespace {

namespace key = protocol::lastRunKey;
using foundation::PropertyList::Dictionary;

void noteVersion(Dictionary& facts, const char* name, const platform::Bundles& bundles, const std::string& path) {
  const auto bundle = bundles.bundleWithPath(path);
  auto version = bundle ? bundle->infoString("CFBundleShortVersionString") : std::nullopt;
  if (bundle && !version) version = bundle->infoString("CFBundleVersion");
  if (version) facts.insert_or_assign(name, *version);
}

bool writeWhole(int file, const std::string& bytes) {
  return ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool replaceDocument(const std::string& path, const std::string& bytes) {
  const std::string fresh = path + "." + std::to_string(::getpid());
  const posix::Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return false;
  if (writeWhole(file.get(), bytes) && std::rename(fresh.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  ::unlink(fresh.c_str());
  errno = error;
  return false;
}

}  // namespace

LastRun::LastRun(const platform::UserDefaults& arguments, const platform::Bundles& bundles, platform::SystemLog& log)
    : _log(log), _path(protocol::lastRunPath()) {
  const auto source = arguments.stringForKey(protocol::sourcePathArgument);
  const bool isUpdate = arguments.boolForKey(protocol::isUpdateArgument);
  const std::string installed = installedBundle(arguments);
  _facts.insert_or_assign(key::mode, !source ? "remove" : (isUpdate ? "update" : "install"));
  _facts.insert_or_assign(key::bundle, installed);
  noteVersion(_facts, key::oldVersion, bundles, installed);
  if (source) noteVersion(_facts, key::newVersion, bundles, *source);
  if (!_path.empty()) ::unlink(_path.c_str());
}

void LastRun::write(const std::optional<Failure>& failure) const {
  if (_path.empty()) return;
  Dictionary record = _facts;
  record.insert_or_assign(key::status, static_cast<int>(failure ? failure->ending : Ending::done));
  record.insert_or_assign(key::time, std::chrono::system_clock::now());
  if (failure) {
    record.insert_or_assign(key::step, failure->step);
    record.insert_or_assign(key::path, failure->path);
    record.insert_or_assign(key::cause, failure->cause);
  }
  constexpr int usersOnly = 0700;
  FileManager().createDirectoryAtPath(foundation::Path::deletingLastComponent(_path), true, {.posixPermissions = usersOnly},
                                      nullptr);
  if (!replaceDocument(_path, foundation::PropertyList::serializeXML(record)))
    _log.log("cannot write " + _path + ": " + std::strerror(errno));
}

}  // namespace platform::Linux
