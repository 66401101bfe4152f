#pragma once
// A settings portal of the test's own, on the session bus that the environment names.
//
// It answers only while serve() is called: until then it is a portal that hangs.
#include <systemd/sd-bus.h>

#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace tests {

class TestPortal {
 public:
  using Value = std::variant<bool, std::uint32_t, double, std::string>;
  using Settings = std::map<std::string, std::map<std::string, Value>>;

  explicit TestPortal(Settings settings = {}) : _settings(std::move(settings)) {
    if (sd_bus_open_user(&_bus) < 0 || sd_bus_add_object_vtable(_bus, nullptr, path, interface, vtable, this) < 0 ||
        sd_bus_request_name(_bus, "org.freedesktop.portal.Desktop", 0) < 0)
      throw std::runtime_error("the portal has no name on the bus");
  }
  ~TestPortal() { sd_bus_flush_close_unref(_bus); }
  TestPortal(const TestPortal&) = delete;
  TestPortal& operator=(const TestPortal&) = delete;

  // How often it was asked for its settings.
  [[nodiscard]] int questions() const { return _questions; }

  // Answers what has arrived, without waiting.
  void serve() {
    while (sd_bus_process(_bus, nullptr) > 0) continue;
    sd_bus_flush(_bus);
  }

  void change(const std::string& name, const std::string& key, const Value& value) {
    _settings[name][key] = value;
    sd_bus_message* signal = nullptr;
    sd_bus_message_new_signal(_bus, &signal, path, interface, "SettingChanged");
    sd_bus_message_append(signal, "ss", name.c_str(), key.c_str());
    append(signal, value);
    sd_bus_send(_bus, signal, nullptr);
    sd_bus_message_unref(signal);
    serve();
  }

 private:
  static constexpr const char* path = "/org/freedesktop/portal/desktop";
  static constexpr const char* interface = "org.freedesktop.portal.Settings";

  static void append(sd_bus_message* message, const Value& value) {
    if (const auto* flag = std::get_if<bool>(&value)) sd_bus_message_append(message, "v", "b", static_cast<int>(*flag));
    if (const auto* number = std::get_if<std::uint32_t>(&value)) sd_bus_message_append(message, "v", "u", *number);
    if (const auto* real = std::get_if<double>(&value)) sd_bus_message_append(message, "v", "d", *real);
    if (const auto* text = std::get_if<std::string>(&value)) sd_bus_message_append(message, "v", "s", text->c_str());
  }

  static int readAll(sd_bus_message* call, void* portal, sd_bus_error* /*error*/) {
    auto& self = *static_cast<TestPortal*>(portal);
    ++self._questions;
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_open_container(reply, 'a', "{sa{sv}}");
    for (const auto& [name, values] : self._settings) {
      sd_bus_message_open_container(reply, 'e', "sa{sv}");
      sd_bus_message_append(reply, "s", name.c_str());
      sd_bus_message_open_container(reply, 'a', "{sv}");
      for (const auto& [key, value] : values) {
        sd_bus_message_open_container(reply, 'e', "sv");
        sd_bus_message_append(reply, "s", key.c_str());
        append(reply, value);
        sd_bus_message_close_container(reply);
      }
      sd_bus_message_close_container(reply);
      sd_bus_message_close_container(reply);
    }
    sd_bus_message_close_container(reply);
    sd_bus_send(sd_bus_message_get_bus(call), reply, nullptr);
    sd_bus_message_unref(reply);
    return 1;
  }

  static constexpr sd_bus_vtable vtable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("ReadAll", "as", "a{sa{sv}}", readAll, SD_BUS_VTABLE_UNPRIVILEGED),
      SD_BUS_SIGNAL("SettingChanged", "ssv", 0),
      SD_BUS_VTABLE_END,
  };

  sd_bus* _bus = nullptr;
  Settings _settings;
  int _questions = 0;
};

}  // namespace tests
