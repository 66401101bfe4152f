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
  const bool isGood = record.verdict == JobRecord::Verdict::done && !record.isWarning;
  return isGood ? protocol::LogPriority::notice : protocol::LogPriority::warning;
}

protocol::LogFields fieldsOf(const JobRecord& record, uid_t user, const std::string& job, const std::string& tool) {
  protocol::LogFields fields;
  add(fields, protocol::jobVariable, job);
  add(fields, protocol::recordField::user, std::to_string(user));
  add(fields, protocol::recordField::toolDigest, tool);
  add(fields, protocol::recordField::command, record.command);
  for (const auto& path : record.paths) add(fields, protocol::recordField::path, path);
  const auto& [installed, replacement] = record.bundles;
  if (replacement) add(fields, protocol::recordField::bundle, replacement->identifier);
  if (installed) add(fields, protocol::recordField::oldVersion, installed->version);
  if (replacement) add(fields, protocol::recordField::newVersion, replacement->version);
  add(fields, protocol::recordField::verdict, nameOf(record.verdict));
  if (record.verdict != JobRecord::Verdict::done) add(fields, protocol::recordField::cause, record.line);
  return fields;
}

}  // namespace AssistantTool
