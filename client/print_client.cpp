#include "client/print_client.h"

#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "programs/failure.h"
#include "programs/one_line.h"

namespace printclient {
namespace {

std::wstring readOptionalText(CS_InRequest& request) {
  return request.readBoolean() ? request.readUTF() : L"";
}

}  // namespace

bool PrintClient::processRequest(CS_InRequest& request) {
  switch (request.number()) {
    case kStartJob:
      startJob(request);
      return true;
    case kWriteJob:
      writeJob(request);
      return true;
    case kEndJob:
      endJob(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void PrintClient::startJob(CS_InRequest& request) try {
  m_job.reset();  // a job that was started before and not ended is dropped first
  JobTicket ticket;
  ticket.jobName = readOptionalText(request);
  ticket.printerName = readOptionalText(request);
  ticket.documentName = readOptionalText(request);
  ticket.dataType = readOptionalText(request);
  for (int& setting : ticket.settings)
    setting = request.readInt();
  ticket.copies = request.readInt();
  m_job = std::make_unique<Job>(std::move(ticket), *m_output);
} catch (const CS_Exception& failure) {
  // Nobody waits for an answer to this request.
  m_output->reporter().line("not printed: the start of a job cannot be read: " + programs::describe(failure) +
                            " (session " + std::to_string(m_output->session()) +
                            "); install the port monitor and the print client of one version");
  throw;
}

void PrintClient::writeJob(CS_InRequest& request) try {
  readOptionalText(request);
  const int length = request.readInt();
  if (!m_job) return;  // what is not read is skipped; the end of the job answers that there is none
  std::uint64_t came = 0;
  if (length > 0) {
    for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece()) {
      m_job->append(piece);
      came += piece.size();
    }
  }
  if (length < 0 || came != static_cast<std::uint64_t>(length)) {
    m_job->fail(kBrokenData, "a piece of data of " + std::to_string(length) + " bytes had " + std::to_string(came));
  }
} catch (...) {
  // Nobody waits for an answer to this request, so the job itself must remember that data are missing.
  if (m_job) m_job->fail(kBrokenData, "a piece of data could not be read");
  throw;
}

void PrintClient::endJob(CS_InRequest& request) {
  const std::wstring name = readOptionalText(request);
  JobResult result = kNoJob;
  if (m_job) {
    result = m_job->end();
    m_job.reset();
  } else {
    m_output->reporter().line("not printed \"" + programs::oneLine(name) +
                              "\": the end of a job came without its start (session " +
                              std::to_string(m_output->session()) + "); print again");
  }
  request.reply().writeInt(result);
  request.sendReply();
}

}  // namespace printclient
