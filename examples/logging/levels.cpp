// Levels by name: LOG_LEVEL is off, error, warning or info. Everything below costs one comparison.
#include <kelto/logging.h>

#include <cstdlib>

static kelto::DDLogSite site{kelto::logLevelNamed("warning").value()};

int main(int argc, char** argv) {
  const kelto::Logging logging(argc, argv);
  kelto::DDLog::addLogger(kelto::DDTTYLogger::sharedInstance());
  kelto::DDLog::addLogger(std::make_shared<kelto::DDFileLogger>(kelto::Logging::current()));
  if (const char* name = std::getenv("LOG_LEVEL")) {
    if (const auto level = kelto::logLevelNamed(name))
      site.setLevel(*level);
    else
      site.error("LOG_LEVEL is not off, error, warning or info: %@", name);
  }
  site.info("%d arguments", argc - 1);
  site.warning("nobody is here");
  site.error("the end");
}
