#include "privileged/tool/JobRecord.h"

#include <string_view>

#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

constexpr std::string_view nameOf(JobRecord::Verdict verdict) {
  if (verdict == JobRecord::Verdict::done) return "done";
  return verdict == JobRecord::Verdict::refused ? "refused" : "incomplete";
}

void add(protocol::LogFields& fields, const char* name, std::string_view value) {
  if (!value.empty()) fields.emplace_back(name, value);
}

}  // namespace

protocol::LogPriority priorityOf(const JobRecord& record) {
  return record.verdict == JobRecord::Verdict::done ? protocol::LogPriority::notice : protocol::LogPriority::warning;
}

protocol::LogFields fieldsOf(const JobRecord& record, uid_t user, const std::string& job, const std::string& tool) {
  protocol::LogFields fields;
  add(fields, protocol::jobVariable, job);
  add(fields, "KELTO_USER", std::to_string(user));
  add(fields, "KELTO_TOOL_SHA256", tool);
  add(fields, "KELTO_COMMAND", record.command);
  for (const auto& path : record.paths) add(fields, "KELTO_PATH", path);
  const auto& [installed, replacement] = record.bundles;
  if (replacement) add(fields, "KELTO_BUNDLE", replacement->identifier);
  if (installed) add(fields, "KELTO_OLD_VERSION", installed->version);
  if (replacement) add(fields, "KELTO_NEW_VERSION", replacement->version);
  add(fields, "KELTO_VERDICT", nameOf(record.verdict));
  if (record.verdict != JobRecord::Verdict::done) add(fields, "KELTO_CAUSE", record.line);
  return fields;
}

}  // namespace AssistantTool
