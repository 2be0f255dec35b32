#include "server/hold/held_job_taker.h"

#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/in_request.h"
#include "protocol/exchange.h"
#include "server/hold/job_hold.h"

#include <fmt/format.h>

namespace aps {

using protocol::PrintResult;

bool HeldJobTaker::initialize() {
  if (m_context->hold && getOwner() != nullptr) {
    m_job = m_context->hold->expected(getConnection(), getOwner()->getIdentifier());
  }
  return m_job != nullptr;
}

bool HeldJobTaker::processRequest(CS_InRequest& request) {
  try {
    switch (static_cast<protocol::PrintRequest>(request.number())) {
      case protocol::PrintRequest::kStart:
        takeStart(request);
        return true;
      case protocol::PrintRequest::kData:
        takeData(request);
        return true;
      case protocol::PrintRequest::kEnd:
        takeEnd(request);
        return true;
      default:
        return CS_Component::processRequest(request);
    }
  } catch (const HoldRefusal& refusal) {
    refuse(refusal);
    return true;
  }
}

void HeldJobTaker::takeStart(CS_InRequest& request) {
  auto start = protocol::read<protocol::JobStart>(request);
  if (!m_job) return;
  if (m_isStarted) m_isBroken = true;
  m_isStarted = true;
  m_isCollected = protocol::isCollected(start.settings);
  m_job->start(std::move(start));
}

void HeldJobTaker::takeData(CS_InRequest& request) try {
  const int length = protocol::read<protocol::JobData>(request).length;
  if (!m_job) return;
  std::uint64_t came = 0;
  if (length > 0) {
    for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece()) {
      m_job->append(piece);
      came += piece.size();
    }
  }
  if (length < 0 || came != static_cast<std::uint64_t>(length)) m_isBroken = true;
} catch (...) {
  m_isBroken = true;  // nobody waits for an answer to this request
  throw;
}

void HeldJobTaker::takeEnd(CS_InRequest& request) {
  protocol::read<protocol::JobEnd>(request);
  const PrintResult result = m_job && m_isStarted ? complete() : PrintResult::kNoJob;
  m_job.reset();
  protocol::answer(request, protocol::JobEnd::Answer{result});
}

PrintResult HeldJobTaker::complete() {
  if (m_isBroken) return PrintResult::kBrokenData;
  if (m_isCollected && m_job->job().bytes == 0) return PrintResult::kNoData;
  m_job->complete();
  return PrintResult::kPrinted;
}

void HeldJobTaker::refuse(const HoldRefusal& refusal) {
  if (!m_job) return;
  m_context->hold->refused(m_job->job(), refusal);
  m_job.reset();
  const CS_RCPtr<CS_Component> owner = getOwner();
  auto* const bridge = dynamic_cast<CS_Bridge*>(owner.get());
  if (bridge == nullptr) return;
  bridge->leave(corvane::fromUtf8(fmt::format("{}; {}", refusal.what(), refusal.remedy())).c_str());
  bridge->release();
}

}  // namespace aps
