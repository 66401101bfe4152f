// A formatter: one letter for the kind of statement, its place, and the text. Debugging information is dropped.
#include <kelto/logging.h>

class Short : public kelto::DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const kelto::DDLogMessage& message, std::string& buffer) override {
    if (message.logFlag() == kelto::DDLogFlagInfo) return std::nullopt;
    buffer = message.logFlag() == kelto::DDLogFlagError ? "E " : "W ";
    buffer.append(message.fileName()).append(":").append(std::to_string(message.lineNumber())).append(" ");
    return buffer.append(message.logMsg());
  }
};

static kelto::DDLogSite site{kelto::DDLogFlagError | kelto::DDLogFlagWarning | kelto::DDLogFlagInfo};

int main(int argc, char** argv) {
  const kelto::Logging logging(argc, argv);
  const auto logger = std::make_shared<kelto::DDFileLogger>(kelto::Logging::current());
  logger->setLogFormatter(std::make_shared<Short>());
  kelto::DDLog::addLogger(logger);
  site.info("not in the file");
  site.warning("%d%% of the disk are left", 7);
  site.error("the disk is full");
}
