#include "privileged/tool/TreeWalk.h"

#include <cerrno>
#include <vector>

#include "privileged/tool/Failure.h"
#include "privileged/tool/FolderChain.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

class Walk {
 public:
  Walk(int parent, TreeVisitor& visitor, const TreeBounds& bounds) : _parent(parent), _visitor(visitor), _bounds(bounds) {}

  void through(const std::string& name) {
    arrive({.name = name, .isFolder = true});
    while (!_pending.empty()) {
      auto& folder = _pending.back();
      if (folder.next == folder.entries.size()) {
        leave();
      } else {
        const FolderEntry entry = std::move(folder.entries[folder.next++]);
        arrive(entry);
      }
    }
  }

 private:
  struct Pending {
    std::string name;  // the folder's own
    std::vector<FolderEntry> entries;
    std::size_t next = 0;
  };

  void arrive(const FolderEntry& entry) {
    countEntry();
    auto folder = _visitor.arrive(_pending.empty() ? _parent : _chain.deepest(), entry);
    if (!folder) return;
    if (_chain.levels() == _bounds.levels)
      throw Failure("the tree is deeper than " + std::to_string(_bounds.levels) + " folders");
    _chain.enter(std::move(folder));
    _pending.push_back({.name = entry.name, .entries = entriesOfDeepest()});
  }
  void leave() {
    const int above = _chain.levels() > 1 ? _chain.above() : _parent;
    _visitor.leave(above, _pending.back().name, _chain.deepest());
    _chain.leave();
    _pending.pop_back();
  }
  void countEntry() {
    if (_entries == _bounds.entries) failTooLarge();
    ++_entries;
    giveSignOfLife();
  }
  std::vector<FolderEntry> entriesOfDeepest() {
    try {
      auto entries = entriesOf(_chain.deepest(), _bounds.entries - _entries);
      if (entries) return *std::move(entries);
    } catch (const Failure&) {
      _visitor.cannotList();
      return {};
    }
    failTooLarge();
  }
  [[noreturn]] void failTooLarge() const {
    throw Failure("the tree has more than " + std::to_string(_bounds.entries) + " files and folders");
  }

  int _parent;
  TreeVisitor& _visitor;
  TreeBounds _bounds;
  FolderChain _chain;
  std::vector<Pending> _pending;
  std::size_t _entries = 0;
};

class Measurement final : public TreeVisitor {
 public:
  posix::Descriptor arrive(int parent, const FolderEntry& entry) override {
    return entry.isFolder ? openFolderIn(parent, entry.name) : posix::Descriptor();
  }
  void cannotList() override {}
};

}  // namespace

void walkTree(int parent, const std::string& name, TreeVisitor& visitor, const TreeBounds& bounds) {
  Walk(parent, visitor, bounds).through(name);
}

posix::Descriptor openIfFolder(int parent, const FolderEntry& entry) {
  if (!entry.isFolder) return {};
  auto folder = openFolderIn(parent, entry.name);
  if (!folder && errno != ENOTDIR && errno != ELOOP) failWithSystemError("cannot open the folder " + entry.name);
  return folder;
}

void requireBounded(int parent, const std::string& name, const TreeBounds& bounds) {
  Measurement measurement;
  walkTree(parent, name, measurement, bounds);
}

}  // namespace AssistantTool
