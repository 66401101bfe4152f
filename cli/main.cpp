// kelto: the installer's command line.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "cli/Change.h"
#include "cli/History.h"
#include "cli/InstallerRun.h"
#include "cli/JSON.h"
#include "cli/Progress.h"
#include "cli/Results.h"
#include "cli/Status.h"
#include "platform/linux/terminal/HelperProgram.h"
#include "platform/linux/terminal/KeptVersions.h"
#include "platform/linux/terminal/Surroundings.h"
#include "platform/linux/terminal/TerminalPlatform.h"

namespace {

using cli::Arguments;
using cli::Dictionary;
using platform::Ending;
using platform::Linux::TerminalPlatform;

constexpr int statusOf(Ending ending) { return static_cast<int>(ending); }

cli::Progress::Kind kindOf(const Arguments& arguments) {
  if (arguments.isJSON) return cli::Progress::Kind::none;
  return platform::Linux::isErrorOutputTerminal() ? cli::Progress::Kind::drawn : cli::Progress::Kind::lines;
}

// Nobody is there to answer without a terminal, or reads the question in JSON.
bool isConfirmed(const Arguments& arguments, const std::string& question) {
  if (arguments.isConfirmed || arguments.isJSON || !platform::Linux::isInputTerminal()) return true;
  std::fputs((question + " [y/N] ").c_str(), stderr);
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

std::string stepOfTool(const cli::Change& change) {
  if (change.source.empty()) return "Moving " + change.installed + " to the Trash";
  return (change.command == cli::Command::install ? "Installing " : "Replacing ") + change.installed;
}

// The new version is started when the user's own copy had to quit for it, or asks for that by waiting to be replaced.
bool relaunches(const Arguments& arguments, const cli::Change& change, const TerminalPlatform& terminal) {
  if (!arguments.relaunches) return false;
  const auto bundle = terminal.platform().bundles.bundleWithPath(cli::applicationOf(change));
  const bool isOwnAwaited = arguments.awaitedProcess && platform::Linux::belongsToThisUser(*arguments.awaitedProcess);
  return isOwnAwaited || (bundle != nullptr && terminal.runsForThisUser(bundle->bundleIdentifier().value_or("")));
}

class Command {
 public:
  Command(const Arguments& arguments, const cli::Change& change) : _arguments(arguments), _change(change) {}

  int run() {
    auto& report = _terminal.platform().report;
    auto facts = cli::factsOf(_change, _terminal.platform().bundles);
    if (const auto failure = objection()) {
      report.fail(*failure);
    } else if (!isConfirmed(_arguments, cli::questionAbout(facts))) {
      report.cancel("the user did not agree");
    } else {
      carryOut();
    }
    _progress.clear();
    cli::addEnding(facts, report);
    if (_arguments.isJSON)
      cli::print(facts, true);
    else if (report.ending() == Ending::done)
      std::puts(cli::reportOf(facts).c_str());
    return statusOf(report.ending());
  }

 private:
  [[nodiscard]] std::optional<platform::Failure> objection() {
    return _terminal.refusal() ? _terminal.refusal() : cli::objectionTo(_change, _terminal.platform());
  }

  void carryOut() {
    _terminal.setRelaunches(relaunches(_arguments, _change, _terminal));
    cli::InstallerRun run(_terminal.platform(), {.onQuestion = [this] { ask(); }, .mayGoOn = [this] { return await(); }});
    if (run.start()) _terminal.run();
  }

  void ask() {
    _progress.tell("Asking for administrator rights");
    _terminal.prepareToAsk();
  }

  bool await() {
    if (!_arguments.awaitedProcess) return true;
    _progress.work("Waiting for the end of process " + std::to_string(*_arguments.awaitedProcess));
    const bool goesOn = _terminal.waitForEndOf(*_arguments.awaitedProcess);
    _progress.clear();
    return goesOn;
  }

  TerminalPlatform::Hooks hooks() {
    return {.onLogLine = [this] { _progress.clear(); },
            .onCopies =
                [this](std::size_t count) {
                  _progress.work("Asking " + std::to_string(count) + (count == 1 ? " copy" : " copies") + " to quit");
                },
            .onToolRuns = [this](bool runs) { runs ? _progress.work(stepOfTool(_change)) : _progress.clear(); },
            .onLaunch = [this] { _progress.tell("Starting the new version"); }};
  }

  const Arguments& _arguments;
  const cli::Change& _change;
  cli::Progress _progress{kindOf(_arguments)};
  TerminalPlatform _terminal{cli::launchArguments(_change), hooks()};
};

// The bundles that the installed one can be exchanged for, newest first.
std::vector<std::string> keptBundles(const std::string& installed, const platform::Platform& platform) {
  const auto bundle = platform.bundles.bundleWithPath(installed);
  if (bundle == nullptr) return {};
  return platform::Linux::keptBundlesOf(installed, bundle->bundleIdentifier().value_or(""));
}

int showStatus(const Arguments& arguments) {
  TerminalPlatform terminal({}, {});
  Dictionary status;
  if (!arguments.bundle.empty()) {
    auto bundle = cli::statusOfBundle(arguments.bundle, terminal.platform());
    if (bundle.empty()) {
      terminal.platform().report.fail({Ending::failed, "read the bundle", arguments.bundle, "it is not a folder"});
      return statusOf(Ending::failed);
    }
    bundle.insert_or_assign(
        "keptVersions", cli::versionsOf(keptBundles(arguments.bundle, terminal.platform()), terminal.platform().bundles));
    status.insert_or_assign("bundle", std::move(bundle));
  }
  if (auto run = cli::statusOfLastRun(terminal.platform().fileManager); !run.empty())
    status.insert_or_assign("lastRun", std::move(run));
  std::string cause;
  const auto policy = platform::Linux::policyOfThisMachine(cause);
  status.insert_or_assign("policy", cli::statusOfPolicy(policy, cause));
  cli::print(status, arguments.isJSON);
  return statusOf(Ending::done);
}

int verify(const Arguments& arguments) {
  TerminalPlatform terminal({}, {});
  auto& platform = terminal.platform();
  const auto program = platform.bundles.mainBundle().pathForResource("kelto-manifest", "");
  const auto outcome = platform::Linux::runHelper(program.value_or(""), {"--verify", arguments.bundle});
  if (outcome.status != 0)
    platform.report.fail({Ending::failed, "verify the bundle", arguments.bundle, cli::causeOfHelper(outcome.output)});
  auto facts = outcome.status == 0 ? cli::valuesOfLines(outcome.output) : Dictionary();
  facts.insert_or_assign("bundle", arguments.bundle);
  if (arguments.isJSON) cli::addEnding(facts, platform.report);
  if (arguments.isJSON || outcome.status == 0) cli::print(facts, arguments.isJSON);
  return statusOf(platform.report.ending());
}

int showHistory(const Arguments& arguments) {
  std::string cause;
  auto jobs = platform::Linux::recordedJobs(arguments.journal, cause);
  if (!jobs) {
    TerminalPlatform({}, {}).platform().report.fail({Ending::failed, "read the journal", arguments.journal, cause});
    return statusOf(Ending::failed);
  }
  jobs = cli::jobsOf(arguments.bundle, std::move(*jobs));
  if (arguments.isJSON)
    std::puts(cli::jsonOf(cli::listOf(*jobs)).c_str());
  else
    for (const auto& job : *jobs) std::puts(cli::lineOf(job).c_str());
  return statusOf(Ending::done);
}

cli::Change returnOf(const Arguments& arguments) {
  const TerminalPlatform terminal({}, {});
  const auto& platform = terminal.platform();
  auto change = cli::changeOf(arguments);
  change.source = cli::chosenBundle(keptBundles(change.installed, platform), arguments.version, platform.bundles);
  return change;
}

int carryOut(const Arguments& arguments) {
  if (arguments.command == cli::Command::verify) return verify(arguments);
  if (arguments.command == cli::Command::history) return showHistory(arguments);
  if (arguments.command == cli::Command::status) return showStatus(arguments);
  const auto change = arguments.command == cli::Command::rollback ? returnOf(arguments) : cli::changeOf(arguments);
  return Command(arguments, change).run();
}

int refuse(const std::string& cause) {
  TerminalPlatform({}, {}).platform().report.fail({Ending::badArguments, "read the arguments", "", cause});
  return statusOf(Ending::badArguments);
}

int showVersion() {
  const TerminalPlatform terminal({}, {});
  const auto version = cli::versionOf(terminal.platform().bundles.mainBundle());
  std::printf("kelto %s\n", version.empty() ? "unknown" : version.c_str());
  return statusOf(Ending::done);
}

}  // namespace

int main(int argc, char** argv) {
  const auto read = cli::readArguments({argv + 1, argv + std::max(argc, 1)});
  if (read.wantsHelp) {
    std::fwrite(cli::help.data(), 1, cli::help.size(), stdout);
    return statusOf(Ending::done);
  }
  if (read.wantsVersion) return showVersion();
  return read.arguments ? carryOut(*read.arguments) : refuse(read.cause);
}
