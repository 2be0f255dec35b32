#include "server/administration_server.h"

#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/process.h"
#include "corvane/text.h"
#include "programs/administration.h"
#include "server/printer_name.h"
#include "server/utc_text.h"

#include <algorithm>

namespace aps {
namespace {

std::wstring versionText() {
  const CS_Version& version = programs::kProgramsVersion;
  return std::to_wstring(version.major) + L"." + std::to_wstring(version.minor) + L"." +
         std::to_wstring(version.revision) + L"." + std::to_wstring(version.build);
}

void writePrinter(corvane::ValueWriter& reply, const Printer& printer, int session) {
  reply.writeText(localPrinterName(printer.name(), session).c_str());
  for (const auto& text : printer.texts) {
    reply.writeBoolean(text.has_value());
    if (text) reply.writeText(text->c_str());
  }
  reply.writeBoolean(printer.flag);
  reply.writeInt(printer.value);
  reply.writeInt(printer.secondValue);
}

// Somewhat more than the bytes that the sessions take in a reply: a character is at most as long there as here.
std::size_t sizeOf(const std::vector<SessionTable::Status>& sessions) {
  constexpr std::size_t kSession = 64;
  constexpr std::size_t kPrinter = 128;
  std::size_t size = 0;
  for (const SessionTable::Status& session : sessions) {
    size += kSession;
    for (const Printer& printer : session.printers) {
      size += kPrinter + sizeof(wchar_t) * printer.name().size();
      for (const auto& text : printer.texts) {
        if (text) size += sizeof(wchar_t) * text->size();
      }
    }
  }
  return size;
}

void leaveTextsOut(std::vector<SessionTable::Status>& sessions) {
  for (SessionTable::Status& session : sessions) {
    for (Printer& printer : session.printers) {
      for (int i = 1; i < programs::kPrinterTexts; ++i) {
        if (i != programs::kDriverText) printer.texts[static_cast<std::size_t>(i)].reset();
      }
    }
  }
}

}  // namespace

bool AdministrationServer::release() {
  m_released = true;
  m_application->notices.wake();
  return CS_Component::release();
}

bool AdministrationServer::processRequest(CS_InRequest& request) {
  switch (request.number()) {
    case programs::kStatus:
      status(request);
      return true;
    case programs::kStatusPage:
      statusPage(request);
      return true;
    case programs::kRecords:
      records(request);
      return true;
    case programs::kNotices:
      notices(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void AdministrationServer::status(CS_InRequest& request) {
  std::vector<SessionTable::Status> sessions = m_application->sessions.status();
  if (sizeOf(sessions) > kMaxStatusBytes) leaveTextsOut(sessions);
  if (sizeOf(sessions) > kMaxStatusBytes) {
    throw CS_Exception(corvane::kLimitExceeded,
                       L"the printers of %u sessions are too many for one answer; a newer tool asks for pages",
                       static_cast<unsigned>(sessions.size()));
  }
  writeStatus(request.reply(), sessions);
  request.sendReply();
}

void AdministrationServer::statusPage(CS_InRequest& request) {
  SessionTable::Place from;
  from.session = request.readInt();
  from.printer = static_cast<std::size_t>(std::max(request.readInt(), 0));
  const SessionTable::Page page = m_application->sessions.page(from, kPageCharacters);
  auto& reply = request.reply();
  writeStatus(reply, page.sessions);
  reply.writeBoolean(page.next.has_value());
  if (page.next) {
    reply.writeInt(page.next->session);
    reply.writeInt(static_cast<int>(page.next->printer));
  }
  request.sendReply();
}

void AdministrationServer::writeStatus(corvane::ValueWriter& reply,
                                       const std::vector<SessionTable::Status>& sessions) const {
  reply.writeText(versionText().c_str());
  reply.writeInt(static_cast<int>(corvane::processId()));
  reply.writeText(utcText(m_application->startedAt).c_str());
  reply.writeInt(static_cast<int>(sessions.size()));
  for (const SessionTable::Status& session : sessions) {
    reply.writeInt(session.number);
    reply.writeBoolean(session.connected);
    reply.writeText(utcText(session.since).c_str());
    reply.writeInt(static_cast<int>(session.printers.size()));
    for (const Printer& printer : session.printers)
      writePrinter(reply, printer, session.number);
  }
}

void AdministrationServer::records(CS_InRequest& request) {
  const int count = std::max(request.readInt(), 0);
  auto& reply = request.reply();
  for (const std::string& line : m_application->log->failures().latest(static_cast<std::size_t>(count))) {
    reply.writeBoolean(true);
    reply.writeText(corvane::fromUtf8(line).c_str());
  }
  reply.writeBoolean(false);
  request.sendReply();
}

void AdministrationServer::notices(CS_InRequest& request) {
  const int after = request.readInt();
  const std::chrono::milliseconds wait(std::max(request.readInt(), 0));
  const NoticeList::Answer answer =
      m_application->notices.after(after, std::min(wait, m_application->longestNoticeWait), m_released);
  auto& reply = request.reply();
  reply.writeInt(answer.latest);
  for (const NoticeList::Entry& entry : answer.entries) {
    reply.writeBoolean(true);
    reply.writeInt(entry.number);
    reply.writeText(utcText(entry.time).c_str());
    reply.writeText(entry.notice.kind.c_str());
    reply.writeText(entry.notice.line.c_str());
    reply.writeInt(static_cast<int>(entry.notice.values.size()));
    for (const auto& [name, value] : entry.notice.values) {
      reply.writeText(name.c_str());
      reply.writeText(value.c_str());
    }
  }
  reply.writeBoolean(false);
  request.sendReply();
}

}  // namespace aps
