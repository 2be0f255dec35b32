#include "server/program_monitor_server.h"

#include "corvane/components/in_request.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/names.h"
#include "server/log_monitor.h"

#include <fmt/format.h>

namespace aps {
namespace {

// Empty when the notice has no value of that name.
std::wstring valueOf(const CS_Notice& notice, std::wstring_view wanted) {
  for (const auto& [name, value] : notice.values) {
    if (name == wanted) return value;
  }
  return {};
}

}  // namespace

bool ProgramMonitorServer::processRequest(CS_InRequest& request) {
  return logThrown(
      m_context->log, [this] { return fmt::format("{}: request", m_process); }, request.number(),
      [&] { return serve(request); });
}

bool ProgramMonitorServer::serve(CS_InRequest& request) {
  switch (request.number()) {
    case CS_ProgramMonitor_c::kSetProcessInfo: {
      const int processId = request.readInt();
      m_process = fmt::format("{} {}", programs::oneLine(request.readUTF()), processId);
      m_isIntroduced = true;
      m_context->log.line(fmt::format("{}: connected", m_process));
      request.reply().writeBoolean(true);
      request.sendReply();
      return true;
    }
    case CS_ProgramMonitor_c::kRecord: {
      const int level = request.readInt();
      request.readInt();  // the category is the same for all records of the port monitor
      request.readInt();  // the message number stands in the text
      const int report = request.readInt();
      takeRecord(level, report, programs::oneLine(request.readUTF()));
      return true;
    }
    case CS_ProgramMonitor_c::kNotify:
      takeNotice(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void ProgramMonitorServer::takeRecord(int level, int report, const std::string& text) {
  const std::string group = report != 0 ? fmt::format(" #{}", report) : "";
  const std::string line = fmt::format("{}{}: {}: {}", m_process, group, levelWord(level), text);
  // An exception as a rule repeats the failure that it was thrown for.
  const bool repeats = level == corvane::kLevelException && report == m_lastReport && text == m_lastFailure;
  if (!meansFailure(level) || repeats) {
    m_context->log.line(line);
    return;
  }
  m_context->log.failure(line);
  m_lastReport = report;
  m_lastFailure = text;
}

// A job that went well is told without an introduction; its notice says which process it was.
std::string ProgramMonitorServer::senderOf(const CS_Notice& notice) const {
  if (m_isIntroduced) return m_process;
  const std::wstring process = valueOf(notice, L"process");
  return process.empty() ? m_process : fmt::format("process {}", programs::oneLine(process));
}

void ProgramMonitorServer::tellClient(const CS_Notice& notice) {
  const std::wstring printer = valueOf(notice, L"printer");
  const std::wstring cause = valueOf(notice, L"cause"), remedy = valueOf(notice, L"remedy");
  if (notice.kind != protocol::kPrinterNotice) {
    m_context->clientNews.jobFailed(printer, valueOf(notice, L"document"), cause, remedy);
  } else if (const auto found = m_context->sessions.find(printer); found && found->client) {
    m_context->clientNews.printerRefused(found->client.get(), found->printer.name(), cause, remedy);
  }
}

void ProgramMonitorServer::takeNotice(CS_InRequest& request) {
  CS_Notice notice;
  notice.kind = request.readUTF();
  notice.line = request.readUTF();
  const int count = request.readInt();
  if (count < 0 || count > CS_Notice::kMaxValues) {
    m_context->log.refusal("notices",
                           fmt::format("{}: a notice was refused: it has {} values, the limit is {}; the sender "
                                       "has another version: {}",
                                       m_process, count, CS_Notice::kMaxValues, programs::oneLine(notice.line)));
    return;
  }
  for (int i = 0; i < count; ++i) {
    std::wstring name = request.readUTF();
    notice.values.emplace_back(std::move(name), request.readUTF());
  }
  const std::string line =
      fmt::format("{}: {}: {}", senderOf(notice), programs::oneLine(notice.kind), programs::oneLine(notice.line));
  const std::wstring result = valueOf(notice, L"result");
  const bool failed = result == L"failed" || result == L"refused";
  failed ? m_context->log.failure(line) : m_context->log.line(line);
  if (failed) tellClient(notice);
  m_context->book.noticed(notice);
  m_context->notices.add(std::move(notice));
}

}  // namespace aps
