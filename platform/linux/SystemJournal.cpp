#include "platform/linux/SystemJournal.h"

#include <dlfcn.h>
#include <sys/uio.h>

#include <memory>
#include <vector>

#include "foundation/runtime/Lasting.h"

namespace platform::Linux {
namespace {

// The library is loaded at the first entry, so that programs without a journal do not need it.
struct Library {
  using Send = int(const iovec* fields, int count);

  void* const handle = ::dlopen("libsystemd.so.0", RTLD_NOW);
  Send* const send = handle == nullptr ? nullptr : reinterpret_cast<Send*>(::dlsym(handle, "sd_journal_sendv"));
};

const Library& library() {
  static constinit foundation::Lasting<Library> one;
  return one.get([] { return std::make_unique<Library>(); });
}

}  // namespace

bool sendToJournal(std::span<const std::string> fields) {
  if (library().send == nullptr) return false;
  std::vector<iovec> list;
  for (const auto& field : fields) list.push_back({const_cast<char*>(field.data()), field.size()});
  return library().send(list.data(), static_cast<int>(list.size())) == 0;
}

}  // namespace platform::Linux
