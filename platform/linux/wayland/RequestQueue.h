#pragma once
// Requests of this program's own on Qt's connection to the compositor. Their answers have a queue of their own: Qt does not
// see them, and its own events wait for it. Objects that were made through the queue are destroyed before it.
//
// Main thread only.
#include <wayland-client.h>

#include <memory>

namespace platform::Linux {

class RequestQueue {
 public:
  explicit RequestQueue(wl_display* display);

  // The compositor's global object of that interface, in version 1; nullptr if it has none. The caller destroys it.
  template <class Global>
  [[nodiscard]] Global* bind(const wl_interface& interface) const {
    return static_cast<Global*>(bindAny(interface));
  }

  // Waits until the compositor has seen all requests, and handles its answers. False if the connection has broken.
  bool waitForAnswers() const;

 private:
  struct Destroy {
    void operator()(wl_event_queue* queue) const { wl_event_queue_destroy(queue); }
  };
  [[nodiscard]] void* bindAny(const wl_interface& interface) const;

  wl_display* _display;
  std::unique_ptr<wl_event_queue, Destroy> _queue;
};

}  // namespace platform::Linux
