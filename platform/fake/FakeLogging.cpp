#include "platform/fake/FakeLogging.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "foundation/text/Path.h"

namespace platform::fake {

foundation::Date FakeClock::now() const {
  const std::lock_guard lock(_mutex);
  return _now;
}

foundation::Uptime FakeClock::uptime() const {
  const std::lock_guard lock(_mutex);
  return _uptime;
}

foundation::Clock::CallID FakeClock::callAt(foundation::Uptime when, std::function<void()> action) {
  const std::lock_guard lock(_mutex);
  if (callsWithoutMemory > 0) {
    --callsWithoutMemory;
    throw std::bad_alloc();
  }
  _calls.emplace(std::pair(when, ++_last), std::move(action));
  return _last;
}

void FakeClock::cancel(CallID call) {
  const std::lock_guard lock(_mutex);
  std::erase_if(_calls, [&](const auto& entry) { return entry.first.second == call; });
}

void FakeClock::advance(foundation::Seconds duration) {
  std::unique_lock lock(_mutex);
  const foundation::Uptime end = _uptime + std::chrono::duration_cast<std::chrono::nanoseconds>(duration);
  while (!_calls.empty() && _calls.begin()->first.first <= end) {
    auto node = _calls.extract(_calls.begin());
    const auto step = std::max(node.key().first, _uptime) - _uptime;
    _uptime += step;
    _now += step;
    lock.unlock();
    bool isMade = true;
    try {
      node.mapped()();
    } catch (const std::bad_alloc&) {
      isMade = false;
    }
    lock.lock();
    if (isMade) continue;
    node.key().first = _uptime + moment;
    _calls.insert(std::move(node));
  }
  _now += end - _uptime;
  _uptime = end;
}

void FakeClock::advanceWallClock(foundation::Seconds duration) {
  const std::lock_guard lock(_mutex);
  _now = foundation::dateByAdding(_now, duration);
}

std::size_t FakeClock::pendingCount() const {
  const std::lock_guard lock(_mutex);
  return _calls.size();
}

std::optional<foundation::Seconds> FakeClock::nextCall() const {
  const std::lock_guard lock(_mutex);
  if (_calls.empty()) return std::nullopt;
  return _calls.begin()->first.first - _uptime;
}

class FakeLogFile final : public LogFile {
 public:
  FakeLogFile(FakeLogStorage& storage, std::shared_ptr<FakeLogStorage::Item> item)
      : _storage(storage), _item(std::move(item)) {
    ++_item->openCount;
    ++_item->useCount;
  }
  ~FakeLogFile() override {
    const std::lock_guard lock(_storage._mutex);
    --_item->openCount;
    if (_isInUse) --_item->useCount;
  }
  FakeLogFile(const FakeLogFile&) = delete;
  FakeLogFile& operator=(const FakeLogFile&) = delete;

  std::size_t append(std::string_view bytes, int& error) override {
    const std::lock_guard lock(_storage._mutex);
    const std::size_t fitting = std::min(bytes.size(), _storage.room.load());
    if (fitting < bytes.size()) error = ENOSPC;
    if (_storage.room != SIZE_MAX) _storage.room -= fitting;
    _item->contents += bytes.substr(0, fitting);
    _item->modificationDate = foundation::Clock::current().now();
    return fitting;
  }
  [[nodiscard]] std::uint64_t size() const override {
    const std::lock_guard lock(_storage._mutex);
    return _item->contents.size();
  }
  [[nodiscard]] std::string contentsFrom(std::uint64_t offset) const override {
    const std::lock_guard lock(_storage._mutex);
    return offset < _item->contents.size() ? _item->contents.substr(offset) : std::string();
  }
  bool synchronize() override {
    const std::lock_guard lock(_storage._mutex);
    ++_item->synchronizeCount;
    for (const auto& [path, item] : _storage._files)
      if (item == _item) _storage._events.push_back("synchronised " + path);
    return true;
  }
  void endUse() override {
    const std::lock_guard lock(_storage._mutex);
    --_item->useCount;
    _isInUse = false;
  }
  [[nodiscard]] Place placeOf(const std::string& path) const override {
    const std::lock_guard lock(_storage._mutex);
    const auto place = _storage._files.find(path);
    if (place != _storage._files.end() && place->second == _item) return Place::there;
    return _item->isLinked ? Place::moved : Place::unlinked;
  }

 private:
  FakeLogStorage& _storage;
  const std::shared_ptr<FakeLogStorage::Item> _item;
  bool _isInUse = true;
};

bool FakeLogStorage::fileExists(const std::string& path) const {
  const std::lock_guard lock(_mutex);
  return _files.contains(path) || _folders.contains(path);
}

bool FakeLogStorage::createDirectory(const std::string& path, Error& error) {
  if (createDirectoryError != 0) {
    error = {createDirectoryError, "No room for a folder"};
    return false;
  }
  const std::lock_guard lock(_mutex);
  if (_files.contains(path)) {
    error = {ENOTDIR, "Not a directory"};
    return false;
  }
  for (std::string folder = path; !_folders.contains(folder); folder = foundation::Path::deletingLastComponent(folder))
    _folders[folder] = true;
  return true;
}

std::vector<std::string> FakeLogStorage::namesInDirectory(const std::string& path) const {
  const std::lock_guard lock(_mutex);
  std::vector<std::string> names;
  const auto add = [&](const auto& entry) {
    const bool isInside = entry.first != path && foundation::Path::deletingLastComponent(entry.first) == path;
    if (isInside) names.push_back(foundation::Path::lastComponent(entry.first));
  };
  std::ranges::for_each(_files, add);
  std::ranges::for_each(_folders, add);
  return names;
}

std::optional<LogFileAttributes> FakeLogStorage::attributesOfFile(const std::string& path) const {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (place == _files.end()) return std::nullopt;
  const Item& item = *place->second;
  return LogFileAttributes{item.contents.size(), item.creationDate, item.modificationDate};
}

bool FakeLogStorage::createFile(const std::string& path) {
  const foundation::Date now = foundation::Clock::current().now();
  const std::lock_guard lock(_mutex);
  if (!_folders.contains(foundation::Path::deletingLastComponent(path)) || refusesToOpen) return false;
  return _files
      .emplace(path,
               std::make_shared<Item>(Item{.contents = {}, .creationDate = now, .modificationDate = now, .marks = {}}))
      .second;
}

std::unique_ptr<LogFile> FakeLogStorage::openFile(const std::string& path) {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (place == _files.end() || refusesToOpen) return nullptr;
  return std::make_unique<FakeLogFile>(*this, place->second);
}

bool FakeLogStorage::removeFile(const std::string& path) {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (place == _files.end() || refusesToRemove || place->second->useCount > 0) return false;
  place->second->isLinked = false;
  _unlinked.insert_or_assign(path, place->second);
  _files.erase(place);
  return true;
}

bool FakeLogStorage::moveFile(const std::string& path, const std::string& newPath, Error& error) {
  const std::lock_guard lock(_mutex);
  int status = moveError;
  if (status == 0 && (!_files.contains(path) || !_folders.contains(foundation::Path::deletingLastComponent(newPath))))
    status = ENOENT;
  if (status == 0 && (_files.contains(newPath) || _folders.contains(newPath))) status = EEXIST;
  if (status != 0) {
    error = {status, "The file stays"};
    return false;
  }
  auto node = _files.extract(path);
  node.key() = newPath;
  _files.insert(std::move(node));
  return true;
}

bool FakeLogStorage::hasMark(const std::string& path, const std::string& name) const {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  return place != _files.end() && std::ranges::find(place->second->marks, name) != place->second->marks.end();
}

int FakeLogStorage::setMark(const std::string& path, const std::string& name) {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (markError != 0) return markError;
  if (place == _files.end()) return ENOENT;
  auto& marks = place->second->marks;
  if (std::ranges::find(marks, name) == marks.end()) marks.push_back(name);
  _events.push_back("marked " + path);
  return 0;
}

int FakeLogStorage::removeMark(const std::string& path, const std::string& name, bool& wasMissing) {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (markError != 0) return markError;
  if (place == _files.end()) return ENOENT;
  wasMissing = std::erase(place->second->marks, name) == 0;
  return wasMissing ? ENODATA : 0;
}

void FakeLogStorage::addFile(const std::string& path, std::string contents, std::optional<foundation::Date> creationDate) {
  const foundation::Date born = creationDate.value_or(foundation::Clock::current().now());
  const std::lock_guard lock(_mutex);
  _folders[foundation::Path::deletingLastComponent(path)] = true;
  _files[path] = std::make_shared<Item>(
      Item{.contents = std::move(contents), .creationDate = born, .modificationDate = born, .marks = {}});
}

std::optional<std::string> FakeLogStorage::contents(const std::string& path) const {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  return place == _files.end() ? std::nullopt : std::optional(place->second->contents);
}

std::vector<std::string> FakeLogStorage::paths() const {
  const std::lock_guard lock(_mutex);
  std::vector<std::string> all;
  for (const auto& entry : _files) all.push_back(entry.first);
  return all;
}

int FakeLogStorage::synchronizeCount(const std::string& path) const {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (place != _files.end()) return place->second->synchronizeCount;
  const auto former = _unlinked.find(path);
  return former == _unlinked.end() ? 0 : former->second->synchronizeCount;
}

std::vector<std::string> FakeLogStorage::events() const {
  const std::lock_guard lock(_mutex);
  return _events;
}

void FakeLogStorage::unlink(const std::string& path) {
  const std::lock_guard lock(_mutex);
  const auto place = _files.find(path);
  if (place == _files.end()) return;
  place->second->isLinked = false;
  _unlinked.insert_or_assign(path, place->second);
  _files.erase(place);
}

std::uint32_t FakeProcessInfo::currentThreadIdentifier() const {
  static std::atomic<std::uint32_t> threads{0x1000};
  thread_local const std::uint32_t number = ++threads;
  return number;
}

void FakeTerminal::write(std::span<const std::string_view> pieces) {
  const std::lock_guard lock(_mutex);
  _writes.emplace_back(pieces.begin(), pieces.end());
}

std::string FakeTerminal::text() const {
  const std::lock_guard lock(_mutex);
  std::string all;
  for (const auto& pieces : _writes)
    for (const auto& piece : pieces) all += piece;
  return all;
}

std::vector<std::vector<std::string>> FakeTerminal::writes() const {
  const std::lock_guard lock(_mutex);
  return _writes;
}

void FakeLeveledSystemLog::open(std::string_view facility) {
  const std::lock_guard lock(_mutex);
  _facilities.emplace_back(facility);
}

void FakeLeveledSystemLog::log(int level, std::string_view text) {
  const std::lock_guard lock(_mutex);
  _lines.emplace_back(level, text);
}

std::vector<std::string> FakeLeveledSystemLog::facilities() const {
  const std::lock_guard lock(_mutex);
  return _facilities;
}

std::vector<std::pair<int, std::string>> FakeLeveledSystemLog::lines() const {
  const std::lock_guard lock(_mutex);
  return _lines;
}

namespace {

class FakeSurvivingMemory final : public SurvivingMemory {
 public:
  explicit FakeSurvivingMemory(std::shared_ptr<std::vector<std::byte>> bytes) : _bytes(std::move(bytes)) {}
  [[nodiscard]] std::span<std::byte> bytes() override { return *_bytes; }
  void discard() override { _bytes->clear(); }

 private:
  const std::shared_ptr<std::vector<std::byte>> _bytes;
};

}  // namespace

std::unique_ptr<SurvivingMemory> FakeSurvivingMemories::make(const std::string& name, std::size_t size) {
  if (hasNone) return nullptr;
  auto bytes = std::make_shared<std::vector<std::byte>>(size);
  _living.emplace_back(name, bytes);
  return std::make_unique<FakeSurvivingMemory>(std::move(bytes));
}

void FakeSurvivingMemories::die() {
  for (const auto& [name, bytes] : std::exchange(_living, {}))
    if (!bytes->empty()) dead.emplace_back(*bytes, name);
}

std::vector<std::unique_ptr<SurvivingMemory>> FakeSurvivingMemories::orphans(const std::string& name, std::size_t size) {
  std::vector<std::unique_ptr<SurvivingMemory>> found;
  const auto wanted = [&](const Dead& one) { return (one.name.empty() || one.name == name) && one.bytes.size() == size; };
  for (auto& one : dead)
    if (wanted(one)) {
      _living.emplace_back(name, std::make_shared<std::vector<std::byte>>(one.bytes));
      found.push_back(std::make_unique<FakeSurvivingMemory>(_living.back().second));
    }
  std::erase_if(dead, wanted);
  return found;
}

bool FakeSystemJournal::send(std::span<const std::string> fields) {
  if (isMissing) return false;
  const std::lock_guard lock(_mutex);
  _entries.emplace_back(fields.begin(), fields.end());
  return true;
}

std::vector<std::vector<std::string>> FakeSystemJournal::entries() const {
  const std::lock_guard lock(_mutex);
  return _entries;
}

}  // namespace platform::fake
