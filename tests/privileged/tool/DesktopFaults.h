#pragma once
// For tests: faults and power cuts while a bundle that brings a desktop entry is installed, replaced, moved and removed.
#include "tests/privileged/tool/DesktopBundles.h"
#include "tests/privileged/tool/FaultMatrix.h"
#include "tests/privileged/tool/PowerCut.h"

namespace tests::tool {

// The bundle is the old one or the new one, whole, and so is the entry; the entry of a job that did not get to its end can
// be that of the other (unfinished) until the next job in the place, whatever that is about and whether it is done. A job
// that is done shows the entry, or says why it was left out.
class EntryCase : public FaultCase {
 public:
  enum class Kind { install, replace, move, remove };
  EntryCase(const Places& places, Kind kind) : FaultCase(places), _kind(kind) {}

  void prepare() override {
    for (const fs::path folder : {"/usr/local/share", "/var/lib/kelto/entries"})
      if (isThere(folder))
        for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
    for (const auto& bundle : {_installed, _download}) fs::create_directories(bundle.parent_path());
    if (_kind != Kind::install) makeDesktopBundle(_installed, "Old", {"48x48", "scalable"});
    if (_kind != Kind::install) show("Old", _installed, {"48x48", "scalable"});
    if (_kind == Kind::install || _kind == Kind::replace) makeDesktopBundle(_download, "New", {"64x64", "scalable"});
    _old = treeOf(_installed);
    _new = treeOf(_kind == Kind::move ? _installed : _download);
    makeDesktopBundle(_otherDownload, "");
  }
  InstructionArchive::Instructions job() const override {
    if (_kind == Kind::remove)
      return {{protocol::commandKey, protocol::removeFileCommand}, {protocol::filePathKey, _installed}};
    const bool moves = _kind == Kind::move;
    return instructions(moves ? protocol::moveFileCommand : protocol::replaceItemCommand, moves ? _installed : _download,
                        moves ? _download : _installed);
  }
  Found look() const override {
    const bool isNew = isAfter();
    if (!isNew && !isBefore()) return Found::bad;
    if (!isEntryWhole()) return Found::bad;
    if (!isShown(isNew)) return Found::unfinished;
    if (!isNew) return Found::old;
    return _kind == Kind::remove || treeOf(_kind == Kind::move ? _download : _installed) == _new ? Found::done
                                                                                                 : Found::retimed;
  }
  void hear(const std::string& said) override {
    _isSaid = _isSaid || said.find("the desktop entry was left out: ") != std::string::npos;
  }
  [[nodiscard]] bool isEnough(Found found) const override { return found == Found::done || (isAfter() && _isSaid); }
  InstructionArchive::Instructions next(Found) override {
    return instructions(protocol::replaceItemCommand, _otherDownload, _other);
  }
  bool isSettled() const override {
    return (look() != Found::unfinished || isLeftOut()) && areNotesGone() && isThere(_other);
  }
  InstructionArchive::Instructions refused() const override {
    return instructions(protocol::replaceItemCommand, _places.here / "Download/None.app", _installed);
  }

 private:
  static InstructionArchive::Instructions instructions(const char* command, const fs::path& source, const fs::path& to) {
    return {{protocol::commandKey, command}, {protocol::sourcePathKey, source}, {protocol::destinationPathKey, to}};
  }
  static std::string installedEntry(const std::string& name, const fs::path& bundle) {
    auto text = entryText(name, (bundle / "Contents/Linux/Controller").string());
    return text.insert(text.find('\n') + 1, "X-Kelto-Bundle=" + bundle.string() + "\n");
  }
  static void show(const std::string& name, const fs::path& bundle, const std::vector<std::string>& sizes) {
    writeWithMode(shown.entry(), installedEntry(name, bundle));
    for (const auto& size : sizes) {
      const std::string icon = size == "scalable" ? "com.example.App.svg" : "com.example.App.png";
      fs::create_directories(shown.data / "icons/hicolor" / size / "apps");
      fs::create_symlink(bundle / iconsOfBundle / size / "apps" / icon,
                         shown.data / "icons/hicolor" / size / "apps" / icon);
    }
  }
  [[nodiscard]] bool isBefore() const { return treeOf(_installed) == _old && (_kind != Kind::move || !isThere(_download)); }
  [[nodiscard]] bool isAfter() const {
    if (_kind == Kind::remove) return !isThere(_installed);
    if (_kind == Kind::move) return !isThere(_installed) && treeOf(_download) == _new;
    return withoutTop(treeOf(_installed)) == withoutTop(_new);
  }
  // A job that cannot note or read its entry is done without it, and says so: the menus keep the entry that they had, or
  // have none.
  [[nodiscard]] bool isLeftOut() const {
    const bool isKept = _kind != Kind::install && read(shown.entry()) == installedEntry("Old", _installed);
    return _isSaid && isAfter() && (isKept || shown.isNothing());
  }
  // Of the bundle that is there now.
  [[nodiscard]] bool isShown(bool isNew) const {
    if (isNew ? _kind == Kind::remove : _kind == Kind::install) return shown.isNothing();
    const auto& bundle = isNew && _kind == Kind::move ? _download : _installed;
    const auto* name = isNew && _kind != Kind::move ? "New" : "Old";
    const auto* size = isNew && _kind != Kind::move ? "64x64" : "48x48";
    const auto* otherSize = isNew && _kind != Kind::move ? "48x48" : "64x64";
    return read(shown.entry()) == installedEntry(name, bundle) &&
           shown.sizesFor(bundle) == std::vector<std::string>{size, "scalable"} &&
           !isThere(shown.data / "icons/hicolor" / otherSize / "apps/com.example.App.png");
  }
  [[nodiscard]] bool isEntryWhole() const {
    if (!isThere(shown.entry())) return true;
    const auto text = read(shown.entry());
    return text == installedEntry("Old", _installed) || text == installedEntry("New", _installed) ||
           text == installedEntry("Old", _download);
  }
  static bool areNotesGone() { return !isThere("/var/lib/kelto/entries") || fs::is_empty("/var/lib/kelto/entries"); }

  static inline const Shown shown{"/usr/local/share"};
  Kind _kind;
  bool _isSaid = false;  // that the entry was left out
  fs::path _installed = _places.here / "Applications/App.app";
  fs::path _download = _places.here / "Download/App.app";
  fs::path _other = _places.here / "Applications/Other.app";
  fs::path _otherDownload = _places.here / "Download/Other.app";
  Tree _old;
  Tree _new;
};

inline std::vector<NamedCase> entryCases() {
  const auto changing = [](EntryCase::Kind kind) {
    return [=](const Places& places) { return std::make_unique<EntryCase>(places, kind); };
  };
  return {{"installation with an entry", changing(EntryCase::Kind::install)},
          {"replacement with an entry", changing(EntryCase::Kind::replace)},
          {"move with an entry", changing(EntryCase::Kind::move)},
          {"removal with an entry", changing(EntryCase::Kind::remove)}};
}

class DesktopFaultMatrix : public FaultMatrix {
 protected:
  void SetUp() override {
    FaultMatrix::SetUp();
    if (IsSkipped()) return;
    if (!isRoot) GTEST_SKIP() << "needs root and a mount name space";
    volume("/usr/local/share");
    // They have no part in this, and take the longest.
    for (const char* program : {"/usr/bin/update-desktop-database", "/usr/bin/gtk-update-icon-cache"})
      if (isThere(program)) bind("/bin/true", program);
  }
  void runEntries(const std::vector<FaultKind>& faults, bool alsoLooks, int every) {
    runAll("tmpfs", volume("here"), volume("there"), faults, true, alsoLooks, every, entryCases());
  }
};

class DesktopPowerCut : public PowerCut {};

}  // namespace tests::tool
