// The assistant tool: does one job with the rights that it is started with, usually root's. No arguments.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "privileged/tool/AssistantTool.h"
#include "privileged/tool/Effects.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Rights.h"

int main() {
  std::signal(SIGPIPE, SIG_IGN);
  ::umask(S_IWGRP | S_IWOTH);
  if (::chdir("/") != 0) return EXIT_FAILURE;
  // Drop root's supplementary groups: no job needs them, and they must not help while acting as an ordinary user.
  if (::geteuid() == 0 && ::setgroups(0, nullptr) != 0) return EXIT_FAILURE;
  try {
    AssistantTool::giveUpRights();
  } catch (const AssistantTool::Failure&) {
    return EXIT_FAILURE;
  }
  return AssistantTool::run(STDIN_FILENO, STDOUT_FILENO, AssistantTool::effectsOnThisMachine());
}
