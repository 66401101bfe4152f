#include "sdk/BusCall.h"

#include <utility>

namespace sdk {

Bus openBus(int (*open)(sd_bus**), sd_event* loop) {
  sd_bus* opened = nullptr;
  if (open(&opened) < 0) return nullptr;
  Bus bus(opened);
  if (sd_bus_attach_event(opened, loop, SD_EVENT_PRIORITY_NORMAL) < 0) return nullptr;
  return bus;
}

bool callLater(sd_bus* bus, const Method& method, std::uint64_t patience, const Write& write, Answered answered) {
  sd_bus_message* request = nullptr;
  if (sd_bus_message_new_method_call(bus, &request, method.destination, method.path, method.interface, method.name) < 0)
    return false;
  const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owned(request, &sd_bus_message_unref);
  if (write && write(request) < 0) return false;

  auto waiting = std::make_unique<Answered>(std::move(answered));
  const auto onReply = [](sd_bus_message* reply, void* data, sd_bus_error* /*error*/) {
    (*static_cast<Answered*>(data))(reply);
    return 1;
  };
  sd_bus_slot* slot = nullptr;
  if (sd_bus_call_async(bus, &slot, request, onReply, waiting.get(), patience) < 0) return false;
  // From here the slot owns the function, and the connection owns the slot.
  sd_bus_slot_set_destroy_callback(slot, [](void* data) { delete static_cast<Answered*>(data); });
  static_cast<void>(waiting.release());
  sd_bus_slot_set_floating(slot, 1);
  sd_bus_slot_unref(slot);
  return true;
}

bool hasFailed(sd_bus_message* reply) { return sd_bus_message_is_method_error(reply, nullptr) > 0; }

std::string causeOf(sd_bus_message* reply) {
  const sd_bus_error* error = sd_bus_message_get_error(reply);
  if (error == nullptr) return "the answer is malformed";
  return error->message != nullptr ? error->message : error->name;
}

}  // namespace sdk
