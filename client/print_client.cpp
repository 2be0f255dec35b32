#include "client/print_client.h"

#include "corvane/components/channel.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"
#include "programs/text.h"
#include "protocol/exchange.h"

#include <fmt/format.h>
#include <stdexcept>

namespace printclient {
namespace {

// The bridge leaves its connection, and with it what stands on it: as for a print client that is lost, but for the
// words.
void endBridge(CS_Component& bridge, CS_Channel& channel) {
  CS_Component* const owner = bridge.getOwner();
  if (owner == nullptr || !owner->removeChild(&bridge)) return;  // it has ended by itself
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kRelease;
  header.component = bridge.getIdentifier();
  try {
    channel.link().sendText(header, L"the person canceled the job at the print client");
  } catch (const CS_Exception&) {
    // The connection has ended, and the peer knows.
  }
  bridge.release();
}

}  // namespace

bool PrintClient::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::PrintRequest>(request.number())) {
    case protocol::PrintRequest::kStart:
      startJob(request);
      return true;
    case protocol::PrintRequest::kData:
      writeJob(request);
      return true;
    case protocol::PrintRequest::kEnd:
      endJob(request);
      return true;
    case protocol::PrintRequest::kHeld:
      if (m_output->takenJobs() == nullptr) break;
      askWhether(request);
      return true;
  }
  return CS_Component::processRequest(request);
}

// A piece of the document is a write to the job's file. To start and to end a job may take a sink, a printer or a disk.
bool PrintClient::servesAtOnce(int request) const {
  return static_cast<protocol::PrintRequest>(request) == protocol::PrintRequest::kData;
}

void PrintClient::letGoOfPieces() noexcept {
  if (m_job) m_job->letGo();
}

void PrintClient::askWhether(CS_InRequest& request) try {
  const std::wstring id = protocol::read<protocol::HeldJob>(request).id;
  m_delivery.reset();
  TakenJobs& taken = *m_output->takenJobs();
  const std::wstring device = taken.device();
  TakenJobs::Answer known = taken.ask(id);
  m_delivery = std::move(known.delivery);
  protocol::answer(request, protocol::HeldJob::Answer{known.state, device});
} catch (const std::runtime_error& failure) {
  m_output->reporter().line(
      fmt::format("{}a job that the server has held comes, and what becomes of it cannot be remembered: {}; make the "
                  "folder writable, "
                  "or a job may be given up when a connection is lost",
                  m_output->originOf(getConnection()).label, failure.what()));
  throw CS_Exception(corvane::kRequestRefused, L"this print client cannot remember the job");
}

void PrintClient::startJob(CS_InRequest& request) try {
  m_onCancel.reset();
  m_job.reset();  // a job that was started before and not ended is dropped first
  m_job = std::make_unique<Job>(protocol::read<protocol::JobStart>(request), *m_output, getConnection());
  if (m_delivery) m_job->remember(std::move(m_delivery));
  endBridgeOnCancel();
} catch (const CS_Exception& failure) {
  // Nobody waits for an answer to this request.
  const JobOrigin origin = m_output->originOf(getConnection());
  m_output->reporter().line(
      fmt::format("{}not printed: the start of a job cannot be read: {} ({}); install the same version of the "
                  "port monitor and the print client",
                  origin.label, programs::describe(failure), origin.sessionText()));
  throw;
}

void PrintClient::endBridgeOnCancel() {
  const CS_RCPtr<CS_Component> bridge = getOwner();
  CS_Channel* const channel = bridge ? bridge->getChannel(true) : nullptr;
  if (channel == nullptr || bridge->bridgeEnd() == nullptr) return;
  m_onCancel.emplace(m_job->cancelRequest(), [bridge, channel] { endBridge(*bridge, *channel); });
}

void PrintClient::writeJob(CS_InRequest& request) try {
  const int length = protocol::read<protocol::JobData>(request).length;
  if (!m_job) return;  // what is not read is skipped; the end of the job answers that there is none
  std::uint64_t came = 0;
  if (length > 0) {
    for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece()) {
      m_job->refer(piece);
      came += piece.size();
    }
  }
  if (length < 0 || came != static_cast<std::uint64_t>(length)) {
    m_job->fail(PrintResult::kBrokenData, fmt::format("a piece of data of {} bytes had {}", length, came));
  }
} catch (...) {
  // Nobody waits for an answer to this request, so the job itself must remember that data are missing.
  if (m_job) m_job->fail(PrintResult::kBrokenData, "a piece of data could not be read");
  throw;
}

void PrintClient::endJob(CS_InRequest& request) {
  const std::wstring name = protocol::read<protocol::JobEnd>(request).jobName;
  PrintResult result = PrintResult::kNoJob;
  if (m_job) {
    m_onCancel.reset();  // from here on the answer tells the application
    result = m_job->end();
    m_job.reset();
  } else {
    const JobOrigin origin = m_output->originOf(getConnection());
    m_output->reporter().line(fmt::format("{}not printed {}: the end of a job came without its start ({}); print again",
                                          origin.label, programs::quoted(name), origin.sessionText()));
  }
  protocol::answer(request, protocol::JobEnd::Answer{result});
}

}  // namespace printclient
