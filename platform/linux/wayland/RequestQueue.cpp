#include "platform/linux/wayland/RequestQueue.h"

#include <string_view>

namespace platform::Linux {
namespace {

struct Search {
  const wl_interface& interface;
  void* found = nullptr;
};

void globalAnnounced(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                     std::uint32_t /*version*/) {
  auto& search = *static_cast<Search*>(data);
  if (search.found == nullptr && std::string_view(interface) == search.interface.name)
    search.found = wl_registry_bind(registry, name, &search.interface, 1);
}

void globalRemoved(void* /*data*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}

constexpr wl_registry_listener listener{globalAnnounced, globalRemoved};

struct DestroyWrapper {
  void operator()(wl_display* wrapper) const { wl_proxy_wrapper_destroy(wrapper); }
};

struct DestroyRegistry {
  void operator()(wl_registry* registry) const { wl_registry_destroy(registry); }
};

}  // namespace

RequestQueue::RequestQueue(wl_display* display) : _display(display), _queue(wl_display_create_queue(display)) {}

void* RequestQueue::bindAny(const wl_interface& interface) const {
  // Objects have the queue of the object that they were made by.
  const std::unique_ptr<wl_display, DestroyWrapper> wrapper(static_cast<wl_display*>(wl_proxy_create_wrapper(_display)));
  wl_proxy_set_queue(reinterpret_cast<wl_proxy*>(wrapper.get()), _queue.get());
  const std::unique_ptr<wl_registry, DestroyRegistry> registry(wl_display_get_registry(wrapper.get()));
  Search search{interface};
  wl_registry_add_listener(registry.get(), &listener, &search);
  waitForAnswers();
  return search.found;
}

bool RequestQueue::waitForAnswers() const { return wl_display_roundtrip_queue(_display, _queue.get()) >= 0; }

}  // namespace platform::Linux
