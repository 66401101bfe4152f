#include "platform/linux/BusValues.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

namespace platform::Linux {

namespace {

using foundation::PropertyList::Array;
using foundation::PropertyList::Data;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;

int appendValue(sd_bus_message* message, const Value& value);

// D-Bus ends a string at its first zero.
int appendString(sd_bus_message* message, const std::string& text) {
  if (text.find('\0') != std::string::npos) return -EINVAL;
  return sd_bus_message_append_basic(message, 's', text.c_str());
}

int appendArray(sd_bus_message* message, const Array& array) {
  int status = sd_bus_message_open_container(message, 'a', "v");
  for (const auto& value : array)
    if (status >= 0) status = appendValue(message, value);
  return status < 0 ? status : sd_bus_message_close_container(message);
}

// Appends one variant with the contents that `append` writes.
template <class Append>
int appendVariant(sd_bus_message* message, const char* type, Append append) {
  int status = sd_bus_message_open_container(message, 'v', type);
  if (status >= 0) status = append();
  return status < 0 ? status : sd_bus_message_close_container(message);
}

struct VariantAppender {
  sd_bus_message* message;

  int operator()(const std::string& text) const {
    return appendVariant(message, "s", [&] { return appendString(message, text); });
  }
  int operator()(bool flag) const {
    const int number = flag ? 1 : 0;
    return appendVariant(message, "b", [&] { return sd_bus_message_append_basic(message, 'b', &number); });
  }
  int operator()(std::int64_t number) const {
    return appendVariant(message, "x", [&] { return sd_bus_message_append_basic(message, 'x', &number); });
  }
  int operator()(double number) const {
    return appendVariant(message, "d", [&] { return sd_bus_message_append_basic(message, 'd', &number); });
  }
  int operator()(const Data& data) const {
    return appendVariant(message, "ay",
                         [&] { return sd_bus_message_append_array(message, 'y', data.data(), data.size()); });
  }
  int operator()(const Array& array) const {
    return appendVariant(message, "av", [&] { return appendArray(message, array); });
  }
  int operator()(const Dictionary& dictionary) const {
    return appendVariant(message, "a{sv}", [&] { return appendDictionary(message, dictionary); });
  }
  int operator()(const foundation::Date& /*date*/) const { return 0; }
};

int appendValue(sd_bus_message* message, const Value& value) {
  return std::visit(VariantAppender{message}, value.storage());
}

// Reads a dictionary within the limits. Every read answers with false when the message cannot be read on.
class Reader {
 public:
  explicit Reader(sd_bus_message* message) : _message(message) {}

  bool readDictionary(Dictionary& dictionary, int depth) {
    if (sd_bus_message_enter_container(_message, 'a', "{sv}") <= 0) return false;
    int status = 0;
    while ((status = sd_bus_message_enter_container(_message, 'e', "sv")) > 0) {
      const char* key = nullptr;
      if (sd_bus_message_read_basic(_message, 's', &key) <= 0 || !spend(std::strlen(key))) return false;
      std::optional<Value> value;
      if (!readVariant(value, depth) || sd_bus_message_exit_container(_message) < 0) return false;
      if (value) dictionary.insert_or_assign(key, std::move(*value));
    }
    return status == 0 && sd_bus_message_exit_container(_message) >= 0;
  }

 private:
  bool spend(std::size_t bytes) {
    if (_values == 0 || bytes > _bytes) return false;
    --_values;
    _bytes -= bytes;
    return true;
  }

  // The variant that comes next; `value` stays empty when it is of a type that is left out.
  bool readVariant(std::optional<Value>& value, int depth) {
    char kind = 0;
    const char* type = nullptr;
    if (sd_bus_message_peek_type(_message, &kind, &type) <= 0 || kind != 'v') return false;
    if (!isRead(type, depth)) return sd_bus_message_skip(_message, "v") >= 0;
    const std::string contents = type;
    if (sd_bus_message_enter_container(_message, 'v', contents.c_str()) <= 0) return false;
    return readContents(contents, value, depth) && sd_bus_message_exit_container(_message) >= 0;
  }

  static bool isRead(std::string_view type, int depth) {
    if (type == "av" || type == "a{sv}") return depth < maximumBusDepth;
    return type == "as" || type == "ay" || (type.size() == 1 && std::strchr("sbiuxtd", type[0]) != nullptr);
  }

  bool readContents(const std::string& type, std::optional<Value>& value, int depth) {
    if (type == "a{sv}") return readInto<Dictionary>(value, [&](auto& d) { return readDictionary(d, depth + 1); });
    if (type == "av") return readInto<Array>(value, [&](auto& array) { return readArray(array, depth + 1); });
    if (type == "as") return readInto<Array>(value, [&](auto& array) { return readStrings(array); });
    if (type == "ay") return readInto<Data>(value, [&](auto& data) { return readData(data); });
    return readBasic(type[0], value);
  }

  template <class T, class Read>
  bool readInto(std::optional<Value>& value, Read read) {
    T contents;
    if (!read(contents)) return false;
    value.emplace(std::move(contents));
    return true;
  }

  bool readArray(Array& array, int depth) {
    if (sd_bus_message_enter_container(_message, 'a', "v") <= 0) return false;
    int end = 0;
    while ((end = sd_bus_message_at_end(_message, 0)) == 0) {
      std::optional<Value> value;
      if (!spend(0) || !readVariant(value, depth)) return false;
      if (value) array.push_back(std::move(*value));
    }
    return end > 0 && sd_bus_message_exit_container(_message) >= 0;
  }

  bool readStrings(Array& array) {
    if (sd_bus_message_enter_container(_message, 'a', "s") <= 0) return false;
    const char* text = nullptr;
    int status = 0;
    while ((status = sd_bus_message_read_basic(_message, 's', &text)) > 0) {
      if (!spend(std::strlen(text))) return false;
      array.emplace_back(text);
    }
    return status == 0 && sd_bus_message_exit_container(_message) >= 0;
  }

  bool readData(Data& data) {
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(_message, 'y', &bytes, &size) < 0 || !spend(size)) return false;
    const auto* start = static_cast<const std::byte*>(bytes);
    data.assign(start, start + size);
    return true;
  }

  bool readBasic(char type, std::optional<Value>& value) {
    union {
      const char* text;
      int flag;
      std::int32_t i;
      std::uint32_t u;
      std::int64_t x;
      std::uint64_t t;
      double d;
    } basic{};
    if (sd_bus_message_read_basic(_message, type, &basic) <= 0) return false;
    if (type == 's') {
      if (!spend(std::strlen(basic.text))) return false;
      value.emplace(basic.text);
    }
    if (type == 'b') value.emplace(basic.flag != 0);
    if (type == 'i') value.emplace(std::int64_t{basic.i});
    if (type == 'u') value.emplace(std::int64_t{basic.u});
    if (type == 'x') value.emplace(basic.x);
    if (type == 'd') value.emplace(basic.d);
    if (type == 't' && basic.t <= std::uint64_t{std::numeric_limits<std::int64_t>::max()})
      value.emplace(static_cast<std::int64_t>(basic.t));
    return true;
  }

  sd_bus_message* _message;
  std::size_t _bytes = maximumBusBytes;
  std::size_t _values = maximumBusValues;
};

}  // namespace

int appendDictionary(sd_bus_message* message, const Dictionary& dictionary) {
  int status = sd_bus_message_open_container(message, 'a', "{sv}");
  for (const auto& [key, value] : dictionary) {
    if (value.as<foundation::Date>() != nullptr) continue;
    if (status >= 0) status = sd_bus_message_open_container(message, 'e', "sv");
    if (status >= 0) status = appendString(message, key);
    if (status >= 0) status = appendValue(message, value);
    if (status >= 0) status = sd_bus_message_close_container(message);
  }
  return status < 0 ? status : sd_bus_message_close_container(message);
}

std::optional<Dictionary> readDictionary(sd_bus_message* message) {
  Dictionary dictionary;
  if (!Reader(message).readDictionary(dictionary, 1)) return std::nullopt;
  return dictionary;
}

}  // namespace platform::Linux
