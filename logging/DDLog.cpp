#include "logging/DDLog.h"

#include "foundation/dispatch/Clock.h"
#include "foundation/runtime/Lasting.h"
#include "logging/LogCore.h"

namespace {

using LevelGetter = std::int32_t();
using LevelSetter = void(std::int32_t);

LevelGetter* levelGetter(const foundation::Class* aClass) {
  return aClass == nullptr ? nullptr : aClass->classOperation("ddLogLevel").as<LevelGetter>();
}

LevelSetter* levelSetter(const foundation::Class* aClass) {
  return aClass == nullptr ? nullptr : aClass->classOperation("ddSetLogLevel:").as<LevelSetter>();
}

}  // namespace

void DDLog::initialize() { [[maybe_unused]] const LogCore::Visit core; }

foundation::Dispatch::Queue& DDLog::loggingQueue() {
  if (LogCore* core = LogCore::current()) return *core;
  // Without a platform there is nothing to be in order with.
  using SharedQueue = std::shared_ptr<foundation::Dispatch::SerialQueue>;
  static constinit foundation::Lasting<SharedQueue> queue;
  return *queue.get(
      [] { return std::make_unique<SharedQueue>(foundation::Dispatch::SerialQueue::make("cocoa.plamaiskre")); });
}

void DDLog::addLogger(std::shared_ptr<DDLogger> logger) {
  const LogCore::Visit visit;
  if (visit && logger) visit->async([core = &*visit, logger = std::move(logger)] { core->lt_addLogger(logger); });
}

void DDLog::removeLogger(std::shared_ptr<DDLogger> logger) {
  const LogCore::Visit visit;
  if (visit && logger) visit->async([core = &*visit, logger = std::move(logger)] { core->lt_removeLogger(logger); });
}

void DDLog::removeAllLoggers() {
  if (const LogCore::Visit visit; visit) visit->async([core = &*visit] { core->lt_removeAllLoggers(); });
}

void DDLog::queueLogMessage_asynchronously(const DDLogMessage& message, bool asynchronously) {
  if (const LogCore::Visit core; core)
    core->record(message, asynchronously);
  else
    platform::reportLostStatement();
}

void DDLog::log(const Statement& statement, std::string_view format, std::span<const foundation::FormatArgument> arguments,
                const LogFields* fields) {
  const LogCore::Visit core;
  if (!core) return platform::reportLostStatement();
  const auto timestamp = foundation::Clock::current().now();
  // Nearly all texts fit into this, so that nearly no statement allocates.
  char room[LogSlot::inlineCapacity];
  const auto shortText = foundation::formatInto(room, format, arguments);
  std::string longText;
  if (!shortText) longText = foundation::format(format, arguments);
  std::string encodedFields;
  if (fields != nullptr) fields->encode(encodedFields);
  record(*core, statement, timestamp, shortText ? *shortText : longText, encodedFields);
}

void DDLog::logText(const Statement& statement, std::string_view text) {
  const LogCore::Visit core;
  if (!core) return platform::reportLostStatement();
  if (!core->isStray()) record(*core, statement, foundation::Clock::current().now(), text, {});
}

void DDLog::record(LogCore& core, const Statement& statement, foundation::Date timestamp, std::string_view text,
                   std::string_view fields) {
  core.record({.timestamp = timestamp,
               .file = statement.file,
               .function = statement.function,
               .level = statement.level,
               .flag = statement.flag,
               .context = statement.context,
               .line = statement.line,
               .thread = core.callingThread()},
              text, foundation::Dispatch::currentQueueLabel(), fields, statement.asynchronous);
}

void DDLog::flushLog() {
  if (const LogCore::Visit visit; visit) visit->sync([core = &*visit] { core->lt_flush(); });
}

void DDLog::writeOnCrash() {
  if (const LogCore::Visit core; core) core->writeOnCrash();
}

bool DDLog::isRegisteredClass(const foundation::Class* aClass) {
  return levelGetter(aClass) != nullptr && levelSetter(aClass) != nullptr;
}

std::vector<foundation::Class*> DDLog::registeredClasses() {
  auto classes = foundation::ClassRegistry::shared().classes();
  std::erase_if(classes, [](const foundation::Class* one) { return !isRegisteredClass(one); });
  return classes;
}

std::vector<std::string> DDLog::registeredClassNames() {
  std::vector<std::string> names;
  for (const auto* one : registeredClasses()) names.push_back(one->name());
  return names;
}

std::int32_t DDLog::logLevelForClass(const foundation::Class* aClass) {
  return isRegisteredClass(aClass) ? levelGetter(aClass)() : -1;
}

std::int32_t DDLog::logLevelForClassWithName(std::string_view name) {
  return logLevelForClass(foundation::ClassRegistry::shared().classNamed(name));
}

void DDLog::setLogLevel_forClass(std::int32_t level, const foundation::Class* aClass) {
  if (isRegisteredClass(aClass)) levelSetter(aClass)(level);
}

void DDLog::setLogLevel_forClassWithName(std::int32_t level, std::string_view name) {
  setLogLevel_forClass(level, foundation::ClassRegistry::shared().classNamed(name));
}
