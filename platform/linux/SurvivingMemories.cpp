#include "platform/linux/SurvivingMemories.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "foundation/dispatch/Fork.h"
#include "foundation/text/Path.h"
#include "platform/linux/FolderNames.h"
#include "posix/Descriptor.h"

namespace platform::Linux {
namespace {

class MappedFile final : public SurvivingMemory {
 public:
  MappedFile(std::string path, posix::Descriptor file, void* address, std::size_t size)
      : _path(std::move(path)), _file(std::move(file)), _address(address), _size(size) {
    _handlers = foundation::Fork::addHandlers({.child = [this] { becomePrivate(); }});
  }
  ~MappedFile() override {
    foundation::Fork::removeHandlers(_handlers);
    ::munmap(_address, _size);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  [[nodiscard]] std::span<std::byte> bytes() override { return {static_cast<std::byte*>(_address), _size}; }
  void discard() override {
    if (_file) ::unlink(_path.c_str());
  }

 private:
  // The file and its lock are the parent's.
  void becomePrivate() {
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED;
    // Without memory of its own the child would spoil its parent's.
    if (::mmap(_address, _size, PROT_READ | PROT_WRITE, flags, -1, 0) == MAP_FAILED) std::abort();
    _file.reset();
  }

  const std::string _path;
  posix::Descriptor _file;
  void* const _address;
  const std::size_t _size;
  foundation::Fork::HandlersID _handlers = 0;
};

// Names that are tried: earlier memories of this process, and of former ones with its number, keep theirs.
constexpr unsigned longestSearch = 1000;

std::unique_ptr<SurvivingMemory> mapped(std::string path, posix::Descriptor file, std::size_t size) {
  void* address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (address == MAP_FAILED) return nullptr;
  return std::make_unique<MappedFile>(std::move(path), std::move(file), address, size);
}

bool isOwnFile(int file) {
  struct stat status {};
  return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1;
}

std::size_t sizeOf(int file) {
  struct stat status {};
  return ::fstat(file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// A program that was replaced while it ran keeps its path.
std::string executable() {
  std::error_code code;
  std::string path = std::filesystem::read_symlink("/proc/self/exe", code).string();
  constexpr std::string_view replaced = " (deleted)";
  if (path.ends_with(replaced)) path.resize(path.size() - replaced.size());
  return path;
}

// FNV-1a, which is the same in every version of the program.
std::string numberOf(std::string_view path) {
  std::uint64_t number = 0xCBF29CE484222325U;
  for (const unsigned char byte : path) number = (number ^ byte) * 0x100000001B3U;
  return std::to_string(number);
}

std::unique_ptr<SurvivingMemory> adopted(const std::string& path, std::size_t size) {
  posix::Descriptor file(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 || !isOwnFile(file.get())) return nullptr;
  if (sizeOf(file.get()) != size) {
    // One that is being made is empty until it is locked.
    if (sizeOf(file.get()) > 0) ::unlink(path.c_str());
    return nullptr;
  }
  return mapped(path, std::move(file), size);
}

// The runtime folder counts when it is the user's own, as it must be.
std::string memoryFolder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  struct stat status {};
  const bool isOwn = runtime != nullptr && runtime[0] == '/' && ::stat(runtime, &status) == 0 && S_ISDIR(status.st_mode) &&
                     status.st_uid == ::geteuid();
  return isOwn ? runtime : "/dev/shm";
}

}  // namespace

SurvivingMemories::SurvivingMemories() : SurvivingMemories(memoryFolder()) {}

SurvivingMemories::SurvivingMemories(std::string folder) : SurvivingMemories(std::move(folder), executable()) {}

SurvivingMemories::SurvivingMemories(std::string folder, std::string_view executable)
    : _folder(std::move(folder)), _program(numberOf(executable)) {}

std::string SurvivingMemories::prefix(const std::string& name) const {
  std::string safe = name;
  std::ranges::replace(safe, '/', '_');
  return "kelto-log." + std::to_string(::geteuid()) + "." + safe + "." + _program + ".";
}

std::unique_ptr<SurvivingMemory> SurvivingMemories::make(const std::string& name, std::size_t size) {
  const std::string start = foundation::Path::appending(_folder, prefix(name) + std::to_string(::getpid()) + ".");
  std::string path;
  posix::Descriptor file(-1);
  for (unsigned number = 0; !file && number < longestSearch; ++number) {
    path = start + std::to_string(number);
    file = posix::Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file && errno != EEXIST) return nullptr;
  }
  // Space is taken now: a full file system would otherwise show itself as a fatal signal at the first touch.
  if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return nullptr;
  auto memory =
      ::posix_fallocate(file.get(), 0, static_cast<off_t>(size)) == 0 ? mapped(path, std::move(file), size) : nullptr;
  if (!memory) ::unlink(path.c_str());
  return memory;
}

std::vector<std::unique_ptr<SurvivingMemory>> SurvivingMemories::orphans(const std::string& name, std::size_t size) {
  std::vector<std::unique_ptr<SurvivingMemory>> found;
  const std::string start = prefix(name);
  for (const auto& entry : namesIn(_folder)) {
    if (!entry.starts_with(start)) continue;
    if (auto memory = adopted(foundation::Path::appending(_folder, entry), size)) found.push_back(std::move(memory));
  }
  return found;
}

}  // namespace platform::Linux
