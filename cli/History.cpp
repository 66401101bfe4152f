#include "cli/History.h"

#include <algorithm>

#include "foundation/plist/PropertyList.h"
#include "foundation/text/Harmless.h"

namespace cli {
namespace {

namespace PropertyList = foundation::PropertyList;

void add(Dictionary& values, const char* key, const std::string& text) {
  if (!text.empty()) values.insert_or_assign(key, text);
}

Dictionary valuesOf(const RecordedJob& job) {
  Dictionary values{{"time", job.time}};
  add(values, "job", job.job);
  add(values, "user", job.user);
  add(values, "action", job.command);
  add(values, "application", job.bundle);
  add(values, "oldVersion", job.oldVersion);
  add(values, "newVersion", job.newVersion);
  add(values, "verdict", job.verdict);
  add(values, "cause", job.cause);
  values.insert_or_assign("paths", PropertyList::Array(job.paths.begin(), job.paths.end()));
  return values;
}

std::string versionsOf(const RecordedJob& job) {
  if (job.oldVersion.empty() || job.newVersion.empty()) return job.oldVersion + job.newVersion;
  return job.oldVersion + " -> " + job.newVersion;
}

}  // namespace

std::vector<RecordedJob> jobsOf(const std::string& bundle, std::vector<RecordedJob> jobs) {
  if (bundle.empty()) return jobs;
  std::erase_if(jobs, [&](const RecordedJob& job) { return std::ranges::find(job.paths, bundle) == job.paths.end(); });
  return jobs;
}

PropertyList::Array listOf(const std::vector<RecordedJob>& jobs) {
  PropertyList::Array list;
  for (const auto& job : jobs) list.emplace_back(valuesOf(job));
  return list;
}

std::string lineOf(const RecordedJob& job) {
  std::string line = PropertyList::dateText(job.time) + " " + job.verdict + " " + job.command;
  if (!job.paths.empty()) line += " \"" + job.paths.back() + "\"";
  if (const auto versions = versionsOf(job); !versions.empty()) line += " " + versions;
  if (!job.user.empty()) line += ", " + job.user;
  if (!job.cause.empty()) line += ": " + job.cause;
  return foundation::harmless(line);
}

}  // namespace cli
