#include "platform/linux/CommandLine.h"

#include <algorithm>
#include <cstdio>

#include "foundation/text/Format.h"
#include "platform/RunReport.h"
#include "platform/linux/UserDefaults.h"

namespace platform::Linux {
namespace {

bool isKnown(const CommandLine& commandLine, std::string_view argument) {
  return looksLikeKey(argument) && std::ranges::find(commandLine.keys, argument.substr(1)) != commandLine.keys.end();
}

// Nothing if every argument is known. A known key takes the argument after it, unless that looks like a key: then it has no
// value, and counts as not given.
std::string unknownArguments(int argc, const char* const* argv, const CommandLine& commandLine) {
  std::string unknown;
  for (int i = 1; i < argc; ++i) {
    if (!isKnown(commandLine, argv[i]))
      unknown += std::string(unknown.empty() ? "" : ", ") + argv[i];
    else if (i + 1 < argc && !looksLikeKey(argv[i + 1]))
      ++i;
  }
  return unknown;
}

bool isAsked(int argc, const char* const* argv, std::string_view option) {
  return std::any_of(argv + std::min(argc, 1), argv + argc, [option](const char* argument) { return argument == option; });
}

}  // namespace

std::optional<int> answerToCommandLine(int argc, const char* const* argv, const CommandLine& commandLine,
                                       const std::string& name, const platform::Bundle& bundle, platform::SystemLog& log) {
  if (isAsked(argc, argv, "--help")) {
    std::fputs(foundation::formatted(commandLine.help, bundle.infoString("CFBundleExecutable").value_or(name)).c_str(),
               stdout);
    return static_cast<int>(Ending::done);
  }
  if (isAsked(argc, argv, "--version")) {
    std::printf("%s %s\n", name.c_str(), bundle.infoString("CFBundleShortVersionString").value_or("unknown").c_str());
    return static_cast<int>(Ending::done);
  }
  const auto unknown = unknownArguments(argc, argv, commandLine);
  if (unknown.empty()) return std::nullopt;
  RunReport(log).fail({Ending::badArguments, "read the arguments", "", "unknown: " + unknown + " (see --help)"});
  return static_cast<int>(Ending::badArguments);
}

}  // namespace platform::Linux
