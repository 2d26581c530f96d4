#include "measure/set.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include "support/child.h"
#include "support/error.h"

namespace qv::tool::measure {
namespace {

/// What a child that failed has said, without the line's beginning and end.
std::string complaint(const ChildResult &result) {
  std::string message = result.messages;
  if (message.starts_with("qvvoice: "))
    message.erase(0, 9);
  while (!message.empty() && message.back() == '\n')
    message.pop_back();
  return message.empty() ? fmt::format("ended with status {} and said nothing", result.status) : message;
}

/// {"recordings": [one]}, or {"failed": [one]}.
Json run_job(const std::string &program, const Job &job) try {
  std::vector<std::string> arguments = {program, "measure", job.folder, "--json"};
  arguments.insert(arguments.end(), job.arguments.begin(), job.arguments.end());
  const ChildResult result = run_child(arguments);
  if (result.status != 0)
    return {{"failed", {{"name", job.name}, {"message", complaint(result)}}}};
  Json recording = Json::parse(result.output)["recordings"][0];
  recording["name"] = job.name;
  return {{"recording", recording}};
} catch (const std::exception &error) {
  return {{"failed", {{"name", job.name}, {"message", error.what()}}}};
}

} // namespace

std::vector<std::string> recording_folders(const std::string &folder) {
  std::error_code error;
  std::set<std::string> found;
  for (const auto &entry : std::filesystem::recursive_directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name == "scene.toml" || name == "mic.wav" || name == "ref.wav")
      found.insert(entry.path().parent_path().string());
  }
  if (error || found.empty())
    throw InputError(
        "{}: holds no recordings; folders with mic.wav and ref.wav are needed, as qvvoice scene makes them", folder);
  return {found.begin(), found.end()};
}

Json run_jobs(const std::string &program, const std::vector<Job> &jobs, int parallel, const ProgressFn &progress) {
  std::vector<Json> outcomes(jobs.size());
  std::atomic<size_t> next = 0;
  std::mutex reporting;
  size_t done = 0;
  const auto work = [&] {
    for (size_t i; (i = next++) < jobs.size();) {
      outcomes[i] = run_job(program, jobs[i]);
      const std::lock_guard lock(reporting);
      progress(++done, jobs.size());
    }
  };
  {
    std::vector<std::jthread> workers;
    for (int i = 0; i < parallel; ++i)
      workers.emplace_back(work);
  }
  Json set = as_set({});
  for (const Json &outcome : outcomes)
    if (outcome.contains("recording"))
      set["recordings"].push_back(outcome["recording"]);
    else
      set["failed"].push_back(outcome["failed"]);
  return set;
}

} // namespace qv::tool::measure
