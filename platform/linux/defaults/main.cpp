// The command `defaults`: reads, writes and deletes the stored user defaults of an application.
//
// Exit status 0 when done, 1 when there is nothing of that name or something is wrong; why is said on standard error.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/DefaultsFile.h"
#include "platform/linux/defaults/Description.h"

namespace {

using foundation::PropertyList::Array;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;
using platform::Linux::DefaultsFile;
using Arguments = std::span<const std::string>;

constexpr const char* usage =
    "usage: defaults read [domain [key]]\n"
    "       defaults write domain key value\n"
    "       defaults write domain key -string text | -int number | -float number | -bool yes|no|true|false\n"
    "       defaults write domain key -array text...\n"
    "       defaults delete domain [key]\n"
    "A value without a type is stored as text, a number too.\n";

int fail(const std::string& message) {
  std::fprintf(stderr, "defaults: %s\n", message.c_str());
  return 1;
}

int failWithUsage() {
  std::fputs(usage, stderr);
  return 1;
}

int print(const Value& value) {
  const std::string text = platform::Linux::description(value) + "\n";
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  return isWritten ? 0 : fail("cannot write to standard output");
}

std::string missing(const std::string& domain) { return "the domain '" + domain + "' does not exist"; }

std::string missing(const std::string& domain, const std::string& key) {
  return "the domain '" + domain + "' has no value for '" + key + "'";
}

int failWithName(const std::string& domain) { return fail("'" + domain + "' cannot be the name of a domain"); }

// Every domain that is stored and can be read; what cannot is named on standard error.
int readAll() {
  Dictionary all;
  std::error_code error;
  std::filesystem::directory_iterator entry(platform::Linux::configurationFolder(), error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (entry->path().extension() != ".plist") continue;
    std::string reason;
    auto values = DefaultsFile(entry->path()).read(reason);
    if (!values) fail(reason);
    if (values) all.emplace(entry->path().stem(), std::move(*values));
  }
  return print(std::move(all));
}

int read(Arguments arguments) {
  if (arguments.empty()) return readAll();
  if (arguments.size() > 2) return failWithUsage();
  const auto file = DefaultsFile::forDomain(arguments[0]);
  if (!file) return failWithName(arguments[0]);
  std::string reason;
  const auto values = file->read(reason);
  if (!values) return fail(reason);
  if (arguments.size() == 1) return values->empty() ? fail(missing(arguments[0])) : print(*values);
  const auto place = values->find(arguments[1]);
  return place == values->end() ? fail(missing(arguments[0], arguments[1])) : print(place->second);
}

template <class Number>
std::optional<Value> number(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return Value(value);
}

std::optional<Value> boolean(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (text == "yes" || text == "true" || text == "1") return Value(true);
  if (text == "no" || text == "false" || text == "0") return Value(false);
  return std::nullopt;
}

bool isType(std::string_view argument) {
  constexpr std::string_view types[] = {"-string", "-int", "-integer", "-float", "-bool", "-boolean", "-array"};
  return std::ranges::find(types, argument) != std::end(types);
}

// The value that the arguments behind the key describe. Nothing when they describe none.
std::optional<Value> valueFrom(Arguments arguments) {
  if (arguments.empty()) return std::nullopt;
  const auto& first = arguments[0];
  if (!isType(first)) return arguments.size() == 1 ? std::optional(Value(first)) : std::nullopt;
  if (first == "-array") return Value(Array(arguments.begin() + 1, arguments.end()));
  if (arguments.size() != 2) return std::nullopt;
  const auto& text = arguments[1];
  if (first == "-string") return Value(text);
  if (first == "-float") return number<double>(text);
  if (first == "-bool" || first == "-boolean") return boolean(text);
  return number<std::int64_t>(text);
}

int write(Arguments arguments) {
  if (arguments.size() < 3) return failWithUsage();
  const auto file = DefaultsFile::forDomain(arguments[0]);
  if (!file) return failWithName(arguments[0]);
  const auto value = valueFrom(arguments.subspan(2));
  if (!value && arguments.size() == 4 && isType(arguments[2]))
    return fail("'" + arguments[3] + "' is not a value of the type " + arguments[2].substr(1));
  if (!value) return failWithUsage();
  std::string reason;
  const bool isStored = file->update(
      [&](Dictionary& values) {
        values.insert_or_assign(arguments[1], *value);
        return true;
      },
      reason);
  return isStored ? 0 : fail(reason);
}

int removeKey(const DefaultsFile& file, const std::string& domain, const std::string& key) {
  bool wasThere = false;
  std::string reason;
  const bool isDone = file.update(
      [&](Dictionary& values) {
        wasThere = values.erase(key) > 0;
        return wasThere;
      },
      reason);
  if (!isDone) return fail(reason);
  return wasThere ? 0 : fail(missing(domain, key));
}

int remove(Arguments arguments) {
  if (arguments.empty() || arguments.size() > 2) return failWithUsage();
  const auto file = DefaultsFile::forDomain(arguments[0]);
  if (!file) return failWithName(arguments[0]);
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file->path(), error))) return fail(missing(arguments[0]));
  if (arguments.size() == 2) return removeKey(*file, arguments[0], arguments[1]);
  std::string reason;
  return file->remove(reason) ? 0 : fail(reason);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  if (arguments.empty()) return failWithUsage();
  const auto rest = Arguments(arguments).subspan(1);
  if (arguments[0] == "read") return read(rest);
  if (arguments[0] == "write") return write(rest);
  if (arguments[0] == "delete") return remove(rest);
  return failWithUsage();
}
