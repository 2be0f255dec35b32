#include "client/job_output.h"

#include "client/disk_file.h"
#include "client/sinks/folder/folder_sink.h"
#include "corvane/trust/crypto.h"
#include "programs/text.h"

#include <array>
#include <fmt/format.h>
#include <string_view>
#include <system_error>
#include <vector>

namespace printclient {
namespace {

constexpr const char* kPrefix = ".printclient-";
constexpr const char* kSuffix = ".part";

// Process numbers alone repeat, in containers and on other machines that share the folder.
std::string randomWord() {
  std::array<unsigned char, 8> bytes;
  corvane::fillWithRandom(bytes);
  return fmt::format("{:02x}", fmt::join(bytes, ""));
}

// A temporary name, also with an extension behind it (JobFile::share).
bool isTemporary(const std::string& name) {
  const std::size_t suffix = name.find(kSuffix);
  if (!name.starts_with(kPrefix) || suffix == std::string::npos) return false;
  const std::size_t end = suffix + std::string_view(kSuffix).size();
  return end == name.size() || name[end] == '.';
}

}  // namespace

JobOutput::JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter,
                     std::shared_ptr<SinkTable> sinks)
    : m_folder(std::move(folder)),
      m_session(session),
      m_prefix(fmt::format("{}session-{}-{}-{}-", kPrefix, session, processId, randomWord())),
      m_reporter(reporter),
      m_sinks(sinks ? std::move(sinks) : std::make_shared<SinkTable>(std::make_shared<FolderSink>())) {}

std::string JobOutput::sessionText() const {
  return m_session != 0 ? fmt::format("session {}", m_session) : "one of several sessions";
}

std::string JobOutput::nextTemporaryName() {
  return fmt::format("{}{}{}", m_prefix, ++m_last, kSuffix);
}

int JobOutput::removeLeftovers() const noexcept try {
  std::error_code failure;
  std::vector<std::filesystem::path> leftovers;
  for (std::filesystem::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure)) {
    const std::string name = programs::fromPath(at->path().filename());
    if (isTemporary(name)) leftovers.push_back(at->path());
  }
  int removed = 0;
  for (const auto& path : leftovers) {
    if (removeAbandoned(path)) ++removed;
  }
  return removed;
} catch (const std::exception&) {
  return 0;  // the next print client tries again
}

}  // namespace printclient
