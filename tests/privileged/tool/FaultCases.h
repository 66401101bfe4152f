#pragma once
// For tests: the jobs that the fault matrix interrupts. Each prepares its trees, says what to ask of the tool, tells which
// state it finds afterwards, and what the next job in the same place asks.
#include <functional>
#include <memory>

#include "privileged/tool/ServerUnit.h"
#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/TreeState.h"

namespace tests::tool {

enum class Found {
  old,         // everything as before the job
  done,        // everything as after it
  both,        // moved or trashed across file systems: complete at both places
  missing,     // between two renames where no exchange is known: nothing at the destination until the next job
  retimed,     // the new item whole, but its topmost folder has the time of the exchange: xfs changes it
  unfinished,  // a whole new item whose last step the next job does: its owners, or the rest of the server's three files
  bad,
};

struct Places {
  fs::path here;   // on the file system under test
  fs::path there;  // on another
  bool isRoot = false;
  Ids user;  // who asks
  // Called when the old item is there, and before the new one is made.
  std::function<void()> afterOld = [] {};
  bool isSourceSafe = true;  // on the disk before the job begins, so that no power cut tears it
  fs::path root;             // where the server is installed below; empty without one
  fs::path units;            // the folder of the server's unit, there

  [[nodiscard]] std::vector<std::string> tool() const {
    return root.empty() ? std::vector<std::string>{toolProgram}
                        : std::vector<std::string>{"/usr/sbin/chroot", root, toolProgram};
  }
};

class FaultCase {
 public:
  explicit FaultCase(const Places& places) : _places(places) {}
  virtual ~FaultCase() = default;
  FaultCase(const FaultCase&) = delete;
  FaultCase& operator=(const FaultCase&) = delete;

  virtual void prepare() = 0;
  [[nodiscard]] virtual InstructionArchive::Instructions job() const = 0;
  [[nodiscard]] virtual Found look() const = 0;
  // The next job in this place, after `found`; it has to succeed, and isSettled() to be true after it.
  [[nodiscard]] virtual InstructionArchive::Instructions next(Found found) = 0;
  [[nodiscard]] virtual bool isSettled() const = 0;

  // Hears each line of the tool, that of the job and that of the next one.
  virtual void hear(const std::string& /*said*/) {}
  // Whether a job may have told its caller that it is done.
  [[nodiscard]] virtual bool isEnough(Found found) const { return found == Found::done; }
  // The state after an uninterrupted job; the job fails unless this is `done`.
  [[nodiscard]] virtual Found end() const { return Found::done; }
  // Whether the same job can be asked for again after `found`, and then ends as it should have.
  [[nodiscard]] virtual bool canBeAskedAgain(Found found) const { return found == Found::old || found == Found::missing; }
  // A job in the same place that is refused when it has settled what another one left; empty where there is none.
  [[nodiscard]] virtual InstructionArchive::Instructions refused() const { return {}; }

 protected:
  // But for the topmost folder, which has the time of an exchange until the tool gives it its own back.
  static Tree withoutTop(Tree tree) {
    tree.erase(".");
    return tree;
  }
  // Whether the whole prepared tree is at `path` now. Ignores its owner: a source may have been given away already.
  static bool isWhole(const fs::path& path, const Tree& tree) { return treeOf(path, Ids{}) == tree; }
  const Places& _places;
};

class ReplaceCase : public FaultCase {
 public:
  // The item to be replaced by a download: root's, one that is not there yet, or the invoking user's.
  enum class Kind { folder, manyFiles, file, nothingThere, ofAUser };
  ReplaceCase(const Places& places, Kind kind, bool across) : FaultCase(places), _kind(kind), _across(across) {}

  void prepare() override {
    _source = (_across ? _places.there : _places.here) / "Download/App.app";
    _destination = _places.here / "Applications/App.app";
    fs::create_directories(_destination.parent_path());
    if (_kind != Kind::nothingThere) make(_destination, "1");
    if (_kind == Kind::ofAUser && _places.isRoot) giveTree(_destination, _places.user);
    _places.afterOld();
    makeSource("2");
    _old = treeOf(_destination);
    _sourceTree = treeOf(_source, Ids{});
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::replaceItemCommand},
            {protocol::sourcePathKey, _source},
            {protocol::destinationPathKey, _destination}};
  }
  Found look() const override {
    const auto there = treeOf(_destination);
    const auto rest = treeOf(_source, Ids{});
    if (_places.isSourceSafe && !rest.empty() && withoutTop(rest) != withoutTop(_sourceTree) && there != _new)
      return Found::bad;
    if (there == _new) return Found::done;
    if (there == _old) return Found::old;
    if (there.empty()) return Found::missing;
    return withoutTop(there) == withoutTop(_new) ? Found::retimed : Found::bad;
  }
  InstructionArchive::Instructions next(Found found) override {
    // The source of a job that did not get so far is where it was, or the next job brings it back there.
    if (found == Found::done || found == Found::retimed) {
      fs::remove_all(_source);
      makeSource("3");
    }
    return job();
  }
  bool isSettled() const override { return treeOf(_destination) == _new; }

 private:
  void make(const fs::path& path, const std::string& version) const {
    if (_kind == Kind::file) return write(path, "version " + version);
    makeRichBundle(path, version, _kind == Kind::manyFiles ? 20 : 0);
  }
  void makeSource(const std::string& version) {
    make(_source, version);
    if (_places.isRoot) giveTree(_source, downloader);
    _new = treeOf(_source, _places.isRoot ? std::optional(_kind == Kind::ofAUser ? _places.user : Ids{}) : std::nullopt);
  }
  static constexpr Ids downloader{.user = 54323, .group = 54324};
  Kind _kind;
  bool _across;
  fs::path _source;
  fs::path _destination;
  Tree _old;
  Tree _new;
  Tree _sourceTree;
};

class CopyCase : public FaultCase {
 public:
  CopyCase(const Places& places, bool across) : FaultCase(places), _across(across) {}
  void prepare() override {
    _source = (_across ? _places.there : _places.here) / "From/App.app";
    _destination = _places.here / "To/App.app";
    fs::create_directories(_destination.parent_path());
    makeRichBundle(_source, "1");
    _tree = treeOf(_source);
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::copyFileCommand},
            {protocol::sourcePathKey, _source},
            {protocol::destinationPathKey, _destination}};
  }
  Found look() const override {
    if (treeOf(_source) != _tree) return Found::bad;
    const auto copy = treeOf(_destination);
    if (copy == _tree) return Found::done;
    return copy.empty() ? Found::old : Found::bad;
  }
  InstructionArchive::Instructions next(Found found) override {
    if (found == Found::done) _destination += "-2";
    return job();
  }
  bool isSettled() const override { return look() == Found::done; }

 private:
  bool _across;
  fs::path _source;
  fs::path _destination;
  Tree _tree;
};

class MoveCase : public FaultCase {
 public:
  MoveCase(const Places& places, bool isFile, bool across) : FaultCase(places), _isFile(isFile), _across(across) {}
  void prepare() override {
    _source = (_across ? _places.there : _places.here) / "From/App.app";
    _destination = _places.here / "To/App.app";
    fs::create_directories(_destination.parent_path());
    make();
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::moveFileCommand},
            {protocol::sourcePathKey, _source},
            {protocol::destinationPathKey, _destination}};
  }
  Found look() const override {
    const bool isAtSource = isWholeHere(_source);
    const bool isAtDestination = isWholeHere(_destination);
    if (isAtSource && isAtDestination) return Found::both;
    if (isAtSource && !isThere(_destination)) return Found::old;
    return isAtDestination && !isThere(_source) ? Found::done : Found::bad;
  }
  InstructionArchive::Instructions next(Found found) override {
    if (found == Found::done) make();
    if (found != Found::old) _destination += "-2";
    return job();
  }
  bool isSettled() const override { return isWholeHere(_destination) && !isThere(_source); }

 private:
  void make() {
    if (_isFile) {
      write(_source, "a file");
      setTimes(_source, 1000, 123456789);
    } else {
      makeRichBundle(_source, "1");
    }
    _tree = treeOf(_source, Ids{});
  }
  // Two names of the same file are one more link.
  bool isWholeHere(const fs::path& path) const {
    if (!isThere(path)) return false;
    if (!_isFile) return isWhole(path, _tree);
    return read(path) == "a file" && statusOf(path).st_mtim.tv_nsec == 123456789;
  }
  bool _isFile;
  bool _across;
  fs::path _source;
  fs::path _destination;
  Tree _tree;
};

class RemoveCase : public FaultCase {
 public:
  using FaultCase::FaultCase;
  void prepare() override {
    _item = _places.here / "Applications/App.app";
    makeRichBundle(_item, "1");
    _tree = treeOf(_item);
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::removeFileCommand}, {protocol::filePathKey, _item}};
  }
  Found look() const override {
    const auto left = treeOf(_item);
    if (left == _tree) return Found::old;
    return left.empty() ? Found::done : Found::bad;
  }
  InstructionArchive::Instructions next(Found found) override {
    if (found == Found::done) makeRichBundle(_item, "2");
    return job();
  }
  bool isSettled() const override { return !isThere(_item); }

 private:
  fs::path _item;
  Tree _tree;
};

class TrashCase : public FaultCase {
 public:
  TrashCase(const Places& places, bool across) : FaultCase(places), _across(across) {}
  void prepare() override {
    _item = (_across ? _places.there : _places.here) / "Applications/App.app";
    _trash = _places.here / "home/.local/share/Trash";
    makeRichBundle(_item, "1");
    _old = treeOf(_item);
    _new = treeOf(_item, _places.isRoot ? std::optional(_places.user) : std::nullopt);
    _content = treeOf(_item, Ids{});
    fs::create_directories(_trash.parent_path());
    giveAll(_places.here / "home");
    // No Trash can be made on the volumes: an item from another one has to be copied to the home's.
    for (const auto& place : {_places.here, _places.there})
      write(place.parent_path() / (".Trash-" + std::to_string(_places.user.user)), "");
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::trashFileCommand}, {protocol::filePathKey, _item}};
  }
  Found look() const override {
    const auto left = treeOf(_item);
    if (!left.empty() && left != _old) return Found::bad;
    const auto names = trashed();
    if (names.size() > 1) return Found::bad;
    if (names.empty()) return left.empty() ? Found::bad : Found::old;
    const auto item = _trash / "files" / names.front();
    const auto info = _trash / "info" / (names.front() + ".trashinfo");
    if (read(info).find("\nDeletionDate=") == std::string::npos || treeOf(item, Ids{}) != _content) return Found::bad;
    const bool isHandedOver = treeOf(item) == _new;
    if (!left.empty()) return isHandedOver ? Found::both : Found::bad;
    return isHandedOver ? Found::done : Found::unfinished;
  }
  InstructionArchive::Instructions next(Found found) override {
    _inTrash = found == Found::old ? 0 : 1;
    if (found == Found::done || found == Found::unfinished) makeRichBundle(_item, "2");
    return job();
  }
  // Every item in the Trash has its info file and belongs to its user, and there is no info file without an item.
  bool isSettled() const override {
    const auto names = trashed();
    if (isThere(_item) || names.size() != _inTrash + 1) return false;
    std::size_t infos = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(_trash / "info")) ++infos;
    for (const auto& name : names) {
      if (_places.isRoot && treeOf(_trash / "files" / name) != treeOf(_trash / "files" / name, _places.user)) return false;
      if (!isThere(_trash / "info" / (name + ".trashinfo"))) return false;
    }
    return infos == names.size();
  }

 private:
  void giveAll(const fs::path& folder) const {
    if (_places.isRoot) giveTree(folder, _places.user);
  }
  std::vector<std::string> trashed() const {
    std::vector<std::string> names;
    if (!isThere(_trash / "files")) return names;
    for (const auto& entry : fs::directory_iterator(_trash / "files")) {
      const auto name = entry.path().filename().string();
      if (!name.starts_with(".kelto-staging-")) names.push_back(name);
    }
    return names;
  }
  bool _across;
  fs::path _item;
  fs::path _trash;
  Tree _old;
  Tree _new;
  Tree _content;
  std::size_t _inTrash = 0;
};

// In a root of its own: see ServerRoot. The server's three files are never torn, empty or missing (bad), but can be of both
// versions (unfinished) until the next upgrade. That begins by making them one version again, also when it is refused then:
// the old one while nothing was decided, and never the old one after the verdict.
class UpgradeCase : public FaultCase {
 public:
  enum class Kind { runs, runsWithNewDefinition, doesNotRun };
  UpgradeCase(const Places& places, Kind kind) : FaultCase(places), _kind(kind) {}
  void prepare() override {
    _app = _places.here / "App.app";
    install("1");
    write(_places.root / "state", "running");
    _places.afterOld();
    offer(_kind == Kind::doesNotRun ? "2 does not run" : "2");
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::upgradeServerCommand}, {protocol::filePathKey, _app}};
  }
  Found look() const override {
    int old = 0;
    int fresh = 0;
    for (const auto& [name, path] : files()) {
      if (treeOf(path) == _olds.at(name)) ++old;
      if (isNew(name, path)) ++fresh;
    }
    if (old + fresh != 3) return Found::bad;
    if (old == 3) return Found::old;
    return fresh == 3 ? Found::done : Found::unfinished;
  }
  InstructionArchive::Instructions next(Found found) override {
    if (found == Found::done || _kind == Kind::doesNotRun) offer("3");
    return job();
  }
  bool isSettled() const override {
    for (const auto& [name, path] : files()) {
      if (!isNew(name, path)) return false;
    }
    return isThere(_places.root / "state");
  }
  Found end() const override { return _kind == Kind::doesNotRun ? Found::old : Found::done; }
  bool canBeAskedAgain(Found) const override { return true; }
  // No application is there.
  InstructionArchive::Instructions refused() const override {
    return {{protocol::commandKey, protocol::upgradeServerCommand}, {protocol::filePathKey, _places.here / "Library"}};
  }

 private:
  static constexpr const char* serverProgramName = "KeltoLibraryServer";
  std::map<std::string, fs::path> files() const {
    const auto library = _places.here / "Library";
    const std::string label = "com.kelto.KeltoLibraryServer";
    return {{serverProgramName, library / "Application Support/Kelto/KeltoLibraryServer"},
            {label + ".plist", library / "LaunchDaemons" / (label + ".plist")},
            {label + ".service", _places.units / (label + ".service")}};
  }
  void offer(const std::string& version) {
    _version = version;
    for (const auto& [name, path] : files()) {
      const auto offered = _app / "Contents/Resources/LibraryServer" / name;
      write(offered, textOf(name, version));
      fs::permissions(offered, fs::perms(name == serverProgramName ? 0755 : 0644));
    }
  }
  void install(const std::string& version) {
    for (const auto& [name, path] : files()) {
      fs::create_directories(path.parent_path());
      const bool isMissing = _kind == Kind::runsWithNewDefinition && name.ends_with(".plist");
      if (!isMissing) {
        write(path, textOf(name, version));
        fs::permissions(path, fs::perms(name == serverProgramName ? 0755 : 0644));
        setTimes(path, 1000, 1);
      }
      _olds[name] = treeOf(path);
    }
  }
  // The program is long enough to be torn.
  static std::string textOf(const std::string& name, const std::string& version) {
    return name + " version " + version + "\n" + std::string(name == serverProgramName ? 100'000 : 100, version.front());
  }
  bool isNew(const std::string& name, const fs::path& path) const {
    const auto offered = textOf(name, _version);
    const auto expected = name.ends_with(".service") ? AssistantTool::serverUnitFor(offered, {}) : offered;
    if (!isThere(path) || read(path) != expected) return false;
    return (statusOf(path).st_mode & ALLPERMS) == (name == serverProgramName ? 0755U : 0644U) &&
           statusOf(path).st_nlink == 1;
  }
  Kind _kind;
  fs::path _app;
  std::string _version;
  std::map<std::string, Tree> _olds;
};

struct NamedCase {
  std::string name;
  std::function<std::unique_ptr<FaultCase>(const Places&)> make;
  bool needsRoot = false;
  // Without the home's Trash the volume's takes the item, so it is run on volumes of the test's own only.
  bool needsVolume = false;
};

inline std::vector<NamedCase> upgradeCases() {
  const auto upgrading = [](UpgradeCase::Kind kind) {
    return [=](const Places& places) { return std::make_unique<UpgradeCase>(places, kind); };
  };
  return {
      {.name = protocol::upgradeServerCommand, .make = upgrading(UpgradeCase::Kind::runs), .needsRoot = true},
      {.name = "upgrade with a file more", .make = upgrading(UpgradeCase::Kind::runsWithNewDefinition), .needsRoot = true},
      {.name = "upgrade and back", .make = upgrading(UpgradeCase::Kind::doesNotRun), .needsRoot = true},
  };
}

inline std::vector<NamedCase> itemCases() {
  using Kind = ReplaceCase::Kind;
  const auto replacing = [](Kind kind, bool across) {
    return [=](const Places& places) { return std::make_unique<ReplaceCase>(places, kind, across); };
  };
  const auto moving = [](bool isFile, bool across) {
    return [=](const Places& places) { return std::make_unique<MoveCase>(places, isFile, across); };
  };
  const auto copying = [](bool across) {
    return [=](const Places& places) { return std::make_unique<CopyCase>(places, across); };
  };
  const auto trashing = [](bool across) {
    return [=](const Places& places) { return std::make_unique<TrashCase>(places, across); };
  };
  return {
      {protocol::replaceItemCommand, replacing(Kind::folder, false)},
      {"replacement of many files", replacing(Kind::manyFiles, false)},
      {"replacement of a file", replacing(Kind::file, false)},
      {"replacement of nothing", replacing(Kind::nothingThere, false)},
      {"replacement of a user's item", replacing(Kind::ofAUser, false)},
      {"replacement across", replacing(Kind::folder, true)},
      {protocol::copyFileCommand, copying(false)},
      {"copy across", copying(true)},
      {protocol::moveFileCommand, moving(false, false)},
      {"move of a file", moving(true, false)},
      {"move across", moving(false, true)},
      {protocol::removeFileCommand, [](const Places& places) { return std::make_unique<RemoveCase>(places); }},
      {.name = protocol::trashFileCommand, .make = trashing(false), .needsVolume = true},
      {.name = "trash across", .make = trashing(true), .needsVolume = true},
  };
}

inline std::vector<NamedCase> faultCases() {
  auto cases = itemCases();
  for (auto& upgrade : upgradeCases()) cases.push_back(std::move(upgrade));
  return cases;
}

}  // namespace tests::tool
