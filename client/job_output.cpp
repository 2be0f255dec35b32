#include "client/job_output.h"

#include "client/disk_file.h"
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

std::string JobOrigin::sessionText() const {
  return session != 0 ? fmt::format("session {}", session) : "one of several sessions";
}

JobOutput::JobOutput(std::filesystem::path folder, int session, unsigned long processId, Reporter& reporter,
                     std::shared_ptr<Sink> others)
    : m_folder(std::move(folder)),
      m_session(session),
      m_prefix(fmt::format("{}session-{}-{}-{}-", kPrefix, session, processId, randomWord())),
      m_reporter(reporter),
      m_others(std::move(others)) {}

void JobOutput::setSink(const std::wstring& printer, std::shared_ptr<Sink> sink) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_sinks[printer].swap(sink);
}

std::shared_ptr<Sink> JobOutput::sinkOf(const std::wstring& printer) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (const auto own = m_sinks.find(printer); own != m_sinks.end()) return own->second;
  if (m_others) return m_others;
  throw SinkRefusal(fmt::format("this print client has no printer {}", programs::quoted(printer)),
                    "see which printers it has registered, and print to one of them");
}

void JobOutput::stopSinks() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  for (const auto& [printer, sink] : m_sinks)
    sink->stop();
  if (m_others) m_others->stop();
}

void JobOutput::setOrigin(const CS_Connection* connection, JobOrigin origin) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_origins[connection] = std::move(origin);
}

void JobOutput::forgetOrigin(const CS_Connection* connection) noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_origins.erase(connection);
}

JobOrigin JobOutput::originOf(const CS_Connection* connection) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_origins.find(connection);
  return known != m_origins.end() ? known->second : JobOrigin{0, m_session, ""};
}

std::string JobOutput::nextTemporaryName() {
  return fmt::format("{}{}{}", m_prefix, ++m_last, kSuffix);
}

std::string temporaryNameFor(const std::string& what) {
  return fmt::format("{}{}-{}{}", kPrefix, what, randomWord(), kSuffix);
}

bool isTemporaryNameFor(const std::string& what, const std::string& name) {
  return isTemporary(name) && name.starts_with(kPrefix + what + "-");
}

int removeLeftoversIn(const std::filesystem::path& folder) noexcept try {
  std::error_code failure;
  std::vector<std::filesystem::path> leftovers;
  for (std::filesystem::directory_iterator at(folder, failure), end; !failure && at != end; at.increment(failure)) {
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
