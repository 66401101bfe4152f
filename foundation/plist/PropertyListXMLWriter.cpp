#include <charconv>
#include <cmath>
#include <cstdio>

#include "foundation/plist/PropertyList.h"

namespace foundation::PropertyList {
namespace {

void appendEscaped(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '\r':
        out += "&#13;";
        break;  // a reader would take it for a line feed
      default:
        out += c;
    }
  }
}

std::string realText(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number > 0 ? "+infinity" : "-infinity";
  char digits[32];
  const auto result = std::to_chars(std::begin(digits), std::end(digits), number);
  return {digits, result.ptr};
}

std::string base64(const Data& data) {
  constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((data.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < data.size(); i += 3) {
    unsigned bits = 0;
    const std::size_t held = std::min<std::size_t>(3, data.size() - i);
    for (std::size_t k = 0; k < 3; ++k) bits = bits << 8 | (k < held ? std::to_integer<unsigned>(data[i + k]) : 0U);
    for (std::size_t k = 0; k < 4; ++k) text += k <= held ? digits[bits >> (18 - 6 * k) & 0x3F] : '=';
  }
  return text;
}

class Writer {
 public:
  void write(const Value& value, std::size_t depth) {
    std::visit([&](const auto& held) { writeHeld(held, depth); }, value.storage());
  }

  std::string text;

 private:
  void line(std::size_t depth, std::string_view content) {
    text.append(depth, '\t');
    text += content;
    text += '\n';
  }

  void element(std::string_view name, std::string_view content, std::size_t depth) {
    text.append(depth, '\t');
    text.append("<").append(name).append(">");
    appendEscaped(text, content);
    text.append("</").append(name).append(">\n");
  }

  void writeHeld(const std::string& held, std::size_t depth) { element("string", held, depth); }
  void writeHeld(bool held, std::size_t depth) { line(depth, held ? "<true/>" : "<false/>"); }
  void writeHeld(std::int64_t held, std::size_t depth) { element("integer", std::to_string(held), depth); }
  void writeHeld(double held, std::size_t depth) { element("real", realText(held), depth); }
  void writeHeld(Date held, std::size_t depth) { element("date", dateText(held), depth); }

  void writeHeld(const Data& held, std::size_t depth) {
    constexpr std::size_t width = 68;
    const std::string digits = base64(held);
    line(depth, "<data>");
    for (std::size_t i = 0; i < digits.size(); i += width) line(depth, std::string_view(digits).substr(i, width));
    line(depth, "</data>");
  }

  void writeHeld(const Array& held, std::size_t depth) {
    if (held.empty()) return line(depth, "<array/>");
    line(depth, "<array>");
    for (const auto& element : held) write(element, depth + 1);
    line(depth, "</array>");
  }

  void writeHeld(const Dictionary& held, std::size_t depth) {
    if (held.empty()) return line(depth, "<dict/>");
    line(depth, "<dict>");
    for (const auto& [key, value] : held) {
      element("key", key, depth + 1);
      write(value, depth + 1);
    }
    line(depth, "</dict>");
  }
};

}  // namespace

std::string dateText(Date date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
  const auto days = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day day(days);
  const std::chrono::hh_mm_ss time(seconds - days);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(day.year()),
                static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

std::string serializeXML(const Value& value) {
  Writer writer;
  writer.text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
      "<plist version=\"1.0\">\n";
  writer.write(value, 0);
  writer.text += "</plist>\n";
  return writer.text;
}

}  // namespace foundation::PropertyList
