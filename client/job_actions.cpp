#include "client/job_actions.h"

#include "client/job.h"

#include <exception>
#include <fstream>
#include <functional>
#include <system_error>
#include <utility>
#include <vector>

namespace printclient {
namespace {

constexpr const char* kTooMany = "Too many things are being done at the moment. Try again when one of them is done.";
constexpr std::size_t kPieceBytes = 64 * 1024;

void printKept(const KeptDocument& document, JobOutput& output) {
  JobOrigin origin = document.origin;
  origin.isAgain = true;
  Job job(document.ticket, output, std::move(origin));
  std::ifstream file(document.path, std::ios::binary);
  if (!file) job.fail(PrintResult::kDiskFailure, "the document that was kept cannot be read");
  std::vector<char> piece(kPieceBytes);
  while (file && !job.cancelRequest().isMade()) {
    file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    job.append({reinterpret_cast<const unsigned char*>(piece.data()), static_cast<std::size_t>(file.gcount())});
  }
  if (file.bad()) job.fail(PrintResult::kDiskFailure, "the document that was kept cannot be read");
  job.end();
}

}  // namespace

JobActions::~JobActions() {
  std::list<Running> running;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    running.swap(m_running);
  }
  for (Running& one : running)
    one.thread.join();
}

bool JobActions::start(std::function<void()> action) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_running.remove_if([](Running& one) {
    if (!one.isDone) return false;
    one.thread.join();
    return true;
  });
  if (m_running.size() >= kMostAtATime) return false;
  Running& one = m_running.emplace_back();
  try {
    one.thread = std::thread([&one, action = std::move(action)] {
      action();
      one.isDone = true;
    });
  } catch (const std::system_error&) {
    m_running.pop_back();
    return false;
  }
  return true;
}

std::string JobActions::cancel(std::uint64_t number) {
  const std::shared_ptr<CancelRequest> request = m_output.board().cancelOf(number);
  JobStage stage = JobStage::kUnknown;
  bool isCanceling = true;
  m_output.board().change(number, [&](BoardJob& job) {
    stage = job.stage;
    isCanceling = std::exchange(job.isCanceling, true);
  });
  if (isOver(stage)) return "This job is over already.";
  if (isCanceling) return "";
  if (isAtPrinter(stage)) {
    m_follower.cancel(number);
    return "";
  }
  // The request may have to tell a server that does not read at the moment.
  if (request != nullptr && start([request] { request->make(); })) return "";
  m_output.board().change(number, [](BoardJob& job) { job.isCanceling = false; });
  return kTooMany;
}

std::string JobActions::printAgain(std::uint64_t number) {
  const auto document = m_documents != nullptr ? m_documents->find(number) : nullptr;
  if (document == nullptr) return "The document of this job is not kept any more. Print it from its application.";
  const bool isStarted = start([this, document] {
    try {
      printKept(*document, m_output);
    } catch (const std::exception&) {
      // Without memory; the job that was begun says on the board that it failed.
    }
  });
  return isStarted ? "" : kTooMany;
}

}  // namespace printclient
