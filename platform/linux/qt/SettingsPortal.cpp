#include "platform/linux/qt/SettingsPortal.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

namespace platform::Linux {
namespace {

using Value = SettingsPortal::Value;
using Clock = std::chrono::steady_clock;

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr const char* settingsInterface = "org.freedesktop.portal.Settings";
constexpr const char* appearance = "org.freedesktop.appearance";
constexpr const char* interfaceSettings = "org.gnome.desktop.interface";
constexpr const char* accessibility = "org.gnome.desktop.a11y.interface";

constexpr std::chrono::milliseconds patienceOfBus{50};
constexpr double usualFontSize = 11;

template <class T>
Value readBasic(sd_bus_message* message, char type) {
  T value{};
  if (sd_bus_message_read_basic(message, type, &value) < 0) return {};
  if constexpr (std::is_same_v<T, const char*>)
    return std::string(value);
  else if constexpr (std::is_same_v<T, int>)
    return value != 0;
  else
    return static_cast<double>(value);
}

// Reads the variant that comes next; values of types that no setting here has are skipped.
Value readValue(sd_bus_message* message) {
  const char* contents = nullptr;
  if (sd_bus_message_peek_type(message, nullptr, &contents) <= 0) return {};
  const std::string type = contents;
  if (type != "b" && type != "u" && type != "d" && type != "s") {
    sd_bus_message_skip(message, "v");
    return {};
  }
  if (sd_bus_message_enter_container(message, 'v', type.c_str()) < 0) return {};
  Value value;
  if (type == "b") value = readBasic<int>(message, 'b');
  if (type == "u") value = readBasic<std::uint32_t>(message, 'u');
  if (type == "d") value = readBasic<double>(message, 'd');
  if (type == "s") value = readBasic<const char*>(message, 's');
  sd_bus_message_exit_container(message);
  return value;
}

// Calls `read` with the key of every entry that comes next, a dictionary entry of the given type.
template <class Read>
void forEachEntry(sd_bus_message* message, const char* entry, Read read) {
  if (sd_bus_message_enter_container(message, 'a', ("{" + std::string(entry) + "}").c_str()) < 0) return;
  while (sd_bus_message_enter_container(message, 'e', entry) > 0) {
    const char* key = nullptr;
    if (sd_bus_message_read_basic(message, 's', &key) < 0) return;
    read(key);
    sd_bus_message_exit_container(message);
  }
  sd_bus_message_exit_container(message);
}

std::optional<bool> flag(const Value& value) {
  const auto* is = std::get_if<bool>(&value);
  return is == nullptr ? std::nullopt : std::optional(*is);
}

// Numbered choices: 1 is the wish, 0 says that there is none.
std::optional<bool> isOne(const Value& value) {
  const auto* number = std::get_if<double>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number == 1);
}

template <class T>
std::optional<T> as(const Value& value) {
  const auto* held = std::get_if<T>(&value);
  return held == nullptr ? std::nullopt : std::optional(*held);
}

// "Cantarell Bold 11": a family with its style, and a size.
std::pair<std::string, double> familyAndSize(const std::string& font) {
  const auto blank = font.find_last_of(' ');
  double size = 0;
  if (blank != std::string::npos) std::from_chars(font.data() + blank + 1, font.data() + font.size(), size);
  return size > 0 ? std::pair(font.substr(0, blank), size) : std::pair(font, usualFontSize);
}

}  // namespace

SettingsPortal::SettingsPortal() : _bus(Bus::startUser()) {
  if (!_bus) return;
  ask();
  waitUntilSent();
}

void SettingsPortal::ask() {
  sd_bus_match_signal_async(_bus->get(), nullptr, portalName, portalPath, settingsInterface, "SettingChanged", onSignal,
                            nullptr, this);
  sd_bus_call_method_async(_bus->get(), nullptr, portalName, portalPath, settingsInterface, "ReadAll", onAnswer, this, "as",
                           3, appearance, interfaceSettings, accessibility);
}

// Then the answer is on its way while the caller does other things.
void SettingsPortal::waitUntilSent() {
  const auto deadline = Clock::now() + patienceOfBus;
  for (std::uint64_t unsent = 1; unsent > 0;) {
    process();
    if (!_bus || sd_bus_get_n_queued_write(_bus->get(), &unsent) < 0 || unsent == 0) return;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    if (left <= 0) return;
    sd_bus_wait(_bus->get(), static_cast<std::uint64_t>(left));
  }
}

int SettingsPortal::fileDescriptor() const { return _bus ? sd_bus_get_fd(_bus->get()) : -1; }

void SettingsPortal::process() {
  const auto progress = [this] { return _bus ? sd_bus_process(_bus->get(), nullptr) : 0; };
  int status = progress();
  while (status > 0) status = progress();
  if (status < 0) _bus.reset();
  update();
}

int SettingsPortal::onAnswer(sd_bus_message* message, void* portal, sd_bus_error* /*error*/) {
  if (sd_bus_message_has_signature(message, "a{sa{sv}}") <= 0) return 0;
  forEachEntry(message, "sa{sv}", [&](const char* name) {
    forEachEntry(message, "sv",
                 [&](const char* key) { static_cast<SettingsPortal*>(portal)->take(name, key, readValue(message)); });
  });
  return 0;
}

int SettingsPortal::onSignal(sd_bus_message* message, void* portal, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const char* key = nullptr;
  if (sd_bus_message_has_signature(message, "ssv") <= 0 || sd_bus_message_read(message, "ss", &name, &key) < 0) return 0;
  static_cast<SettingsPortal*>(portal)->take(name, key, readValue(message));
  return 0;
}

void SettingsPortal::take(std::string_view name, std::string_view key, const Value& value) {
  if (name == appearance && key == "contrast") _answers.contrast = isOne(value);
  if (name == appearance && key == "reduced-motion") _answers.reducedMotion = isOne(value);
  if (name == accessibility && key == "high-contrast") _answers.highContrast = flag(value);
  if (name == interfaceSettings && key == "enable-animations") _answers.animations = flag(value);
  if (name == interfaceSettings && key == "text-scaling-factor") _answers.textScale = as<double>(value);
  if (name == interfaceSettings && key == "font-name") _answers.font = as<std::string>(value);
}

DesktopSettings SettingsPortal::settingsOfAnswers() const {
  DesktopSettings settings = _environment;
  if (_answers.contrast || _answers.highContrast)
    settings.highContrast = _answers.contrast.value_or(false) || _answers.highContrast.value_or(false);
  if (_answers.reducedMotion || _answers.animations)
    settings.animates = !_answers.reducedMotion.value_or(false) && _answers.animations.value_or(true);
  const auto [family, size] = familyAndSize(_answers.font.value_or(""));
  settings.letterFamily = family;
  if (_answers.textScale || _answers.font)
    settings.letterScale = possibleLetterScale(_answers.textScale.value_or(1) * std::max(size / usualFontSize, 1.0));
  return settings;
}

void SettingsPortal::update() {
  const auto settings = settingsOfAnswers();
  if (settings == std::exchange(_settings, settings) || !onChange) return;
  onChange();
}

}  // namespace platform::Linux
