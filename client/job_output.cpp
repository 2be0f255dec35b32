#include "client/job_output.h"

#include "programs/paths.h"

#include <system_error>
#include <vector>

namespace printclient {
namespace {

constexpr const char* kSuffix = ".part";

}  // namespace

JobOutput::JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter)
    : m_folder(std::move(folder)),
      m_session(session),
      m_prefix(".printclient-session-" + std::to_string(session) + "-"),
      m_process(std::to_string(processId) + "-"),
      m_reporter(reporter) {}

std::string JobOutput::nextTemporaryName() {
  return m_prefix + m_process + std::to_string(++m_last) + kSuffix;
}

int JobOutput::removeLeftovers() const {
  std::error_code ignored;
  std::vector<std::filesystem::path> leftovers;
  for (const auto& entry : std::filesystem::directory_iterator(m_folder, ignored)) {
    const std::string name = programs::fromPath(entry.path().filename());
    if (name.starts_with(m_prefix) && name.ends_with(kSuffix)) leftovers.push_back(entry.path());
  }
  int removed = 0;
  for (const auto& path : leftovers) {
    if (std::filesystem::remove(path, ignored)) ++removed;
  }
  return removed;
}

}  // namespace printclient
