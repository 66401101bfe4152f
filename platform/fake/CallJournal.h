#pragma once
// The calls that the fakes of one platform received, in one order for all of them. One thread.
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::fake {

class CallJournal {
 public:
  void note(std::string call) { _calls.push_back(std::move(call)); }
  void clear() { _calls.clear(); }

  // Each call as its interface, its operation and what tells it from others: "fileManager.removeItemAtPath /tmp/a".
  [[nodiscard]] const std::vector<std::string>& calls() const { return _calls; }
  // The place of the first call that begins so; the number of calls if there is none.
  [[nodiscard]] std::size_t place(std::string_view beginning) const {
    const auto found = std::ranges::find_if(_calls, [&](const auto& call) { return call.starts_with(beginning); });
    return static_cast<std::size_t>(found - _calls.begin());
  }
  [[nodiscard]] bool contains(std::string_view beginning) const { return place(beginning) < _calls.size(); }

 private:
  std::vector<std::string> _calls;
};

// The base of a fake that notes its calls. Without a journal, as for a fake that stands alone, nothing is noted.
class Journaled {
 public:
  explicit Journaled(CallJournal* journal = nullptr) : _journal(journal) {}

 protected:
  void note(std::string call) const {
    if (_journal != nullptr) _journal->note(std::move(call));
  }

 private:
  CallJournal* _journal;
};

}  // namespace platform::fake
