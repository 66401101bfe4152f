#pragma once
// For tests: the bundles that root's tool keeps, and the jobs of the fault matrix that keep one or return to one.
#include <algorithm>

#include "protocol/KeptBundles.h"
#include "protocol/PolicyFile.h"
#include "tests/privileged/tool/FaultCases.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {

inline fs::path store() { return fs::path("/var/lib/kelto") / protocol::keptFolder; }

// The bundles, oldest first.
inline std::vector<fs::path> keptBundles() {
  std::vector<fs::path> bundles;
  if (!fs::is_directory(store())) return bundles;
  for (const auto& number : fs::directory_iterator(store())) {
    if (number.path().filename().string().starts_with(".")) continue;
    for (const auto& entry : fs::directory_iterator(number.path()))
      if (!entry.is_symlink()) bundles.push_back(entry.path());
  }
  std::ranges::sort(bundles);
  return bundles;
}

// Replaces a bundle that is kept then, or returns to one that was.
class KeepingCase : public FaultCase {
 public:
  KeepingCase(const Places& places, bool returns) : FaultCase(places), _returns(returns) {}

  void prepare() override {
    fs::remove_all(store());
    _destination = _places.here / "Applications/App.app";
    _source = _places.here / "Download/App.app";
    _versions.clear();
    _old = make(_destination, "1");
    if (_returns) {
      const auto folder = store() / "00000001";
      _source = folder / "App.app";
      fs::create_directories(folder);
      fs::create_symlink(_destination.parent_path(), folder / protocol::keptPlaceNote);
      fs::create_symlink("com.example.App", folder / protocol::keptApplicationNote);
    }
    _new = make(_source, "2");
  }
  InstructionArchive::Instructions job() const override {
    return {{protocol::commandKey, protocol::replaceItemCommand},
            {protocol::sourcePathKey, _source},
            {protocol::destinationPathKey, _destination}};
  }
  Found look() const override {
    const auto there = treeOf(_destination);
    if (!areKeptOnesWhole()) return Found::bad;
    if (there == _new) return Found::done;
    if (there == _old) return Found::old;
    if (there.empty()) return Found::missing;
    return withoutTop(there) == withoutTop(_new) ? Found::retimed : Found::bad;
  }
  InstructionArchive::Instructions next(Found found) override {
    const bool isNew = found == Found::done || found == Found::retimed;
    _replacedByNext = isNew ? treeOf(_destination) : _old;
    if (isNew) {
      _source = _places.here / "Download/App.app";
      fs::remove_all(_source);
      _new = make(_source, "3");
    }
    return job();
  }
  bool isSettled() const override {
    const auto kept = keptBundles();
    const bool isNothingLeft = std::ranges::none_of(fs::directory_iterator(store()), [](const auto& entry) {
      return entry.path().filename().string().starts_with(".");
    });
    return look() == Found::done && isNothingLeft && !kept.empty() && treeOf(kept.back()) == _replacedByNext;
  }

 private:
  Tree make(const fs::path& bundle, const std::string& version) {
    makeRichBundle(bundle, version);
    const auto times = statusOf(bundle / "Contents");
    write(
        bundle / "Contents/Info.plist",
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.example.App</string>"
        "<key>CFBundleVersion</key><string>" +
            version + "</string></dict></plist>");
    setTimes(bundle / "Contents", times.st_mtim.tv_sec, times.st_mtim.tv_nsec);
    _versions.push_back(treeOf(bundle));
    return _versions.back();
  }
  // A bundle on its way from the store is in a staging folder, and in none of these.
  [[nodiscard]] bool areKeptOnesWhole() const {
    return std::ranges::all_of(keptBundles(), [this](const auto& bundle) {
      const auto isThis = [kept = withoutTop(treeOf(bundle))](const Tree& version) { return withoutTop(version) == kept; };
      return std::ranges::any_of(_versions, isThis);
    });
  }

  bool _returns;
  fs::path _source;
  fs::path _destination;
  Tree _old;
  Tree _new;
  Tree _replacedByNext;
  std::vector<Tree> _versions;
};

inline std::vector<NamedCase> keepingCases() {
  const auto keeping = [](bool returns) {
    return [=](const Places& places) { return std::make_unique<KeepingCase>(places, returns); };
  };
  return {{"replacement that keeps", keeping(false)}, {"return", keeping(true)}};
}

}  // namespace tests::tool
