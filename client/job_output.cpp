#include "client/job_output.h"

#include "client/disk_file.h"
#include "corvane/trust/crypto.h"
#include "programs/text.h"

#include <array>
#include <fmt/format.h>
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

}  // namespace

JobOutput::JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter)
    : m_folder(std::move(folder)),
      m_session(session),
      m_prefix(fmt::format("{}session-{}-{}-{}-", kPrefix, session, processId, randomWord())),
      m_reporter(reporter) {}

std::string JobOutput::nextTemporaryName() {
  return fmt::format("{}{}{}", m_prefix, ++m_last, kSuffix);
}

int JobOutput::removeLeftovers() const noexcept try {
  std::error_code failure;
  std::vector<std::filesystem::path> leftovers;
  for (std::filesystem::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure)) {
    const std::string name = programs::fromPath(at->path().filename());
    if (name.starts_with(kPrefix) && name.ends_with(kSuffix)) leftovers.push_back(at->path());
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
