#include "server/administration_server.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/invitation.h"
#include "programs/text.h"
#include "protocol/administration.h"
#include "protocol/exchange.h"
#include "protocol/version_text.h"
#include "server/printer_name.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <stdexcept>

namespace aps {
namespace {

// As the tool sees it.
protocol::ListedSession listed(SessionTable::Status&& session) {
  protocol::ListedSession list{session.number, session.connected, programs::utcText(session.since), {}};
  for (Printer& printer : session.printers) {
    std::wstring localName = localPrinterName(printer.name(), session.number);
    list.printers.push_back({std::move(printer), std::move(localName)});
  }
  return list;
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
      for (std::size_t i = 0; i < Printer::kTexts; ++i) {
        if (i != Printer::kNameText && i != Printer::kDriverText) printer.texts[i].reset();
      }
    }
  }
}

}  // namespace

bool AdministrationServer::release() {
  m_released = true;
  m_context->notices.wake();
  return CS_Component::release();
}

bool AdministrationServer::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::AdministrationRequest>(request.number())) {
    case protocol::AdministrationRequest::kStatus:
      status(request);
      return true;
    case protocol::AdministrationRequest::kStatusPage:
      statusPage(request);
      return true;
    case protocol::AdministrationRequest::kInvite:
      invite(request);
      return true;
    case protocol::AdministrationRequest::kRecords:
      records(request);
      return true;
    case protocol::AdministrationRequest::kNotices:
      notices(request);
      return true;
    case protocol::AdministrationRequest::kJobs:
      jobs(request);
      return true;
    case protocol::AdministrationRequest::kCancelJob:
      cancelJob(request);
      return true;
  }
  return CS_Component::processRequest(request);
}

void AdministrationServer::status(CS_InRequest& request) {
  std::vector<SessionTable::Status> sessions = m_context->sessions.status();
  if (sizeOf(sessions) > kMaxStatusBytes) leaveTextsOut(sessions);
  if (sizeOf(sessions) > kMaxStatusBytes) {
    throw CS_Exception(corvane::kLimitExceeded,
                       L"the printers of %u sessions are too many for one answer; a newer tool asks for pages",
                       static_cast<unsigned>(sessions.size()));
  }
  protocol::answer(request, statusOf(std::move(sessions)));
}

void AdministrationServer::statusPage(CS_InRequest& request) {
  const auto asked = protocol::read<protocol::StatusPage>(request);
  SessionTable::Page page =
      m_context->sessions.page({asked.session, static_cast<std::size_t>(std::max(asked.printer, 0))}, kPageCharacters);
  protocol::StatusPage::Answer answer{statusOf(std::move(page.sessions)), std::nullopt};
  if (page.next) {
    answer.next = protocol::StatusPage{page.next->session, static_cast<int>(page.next->printer)};
  } else {
    answer.status.held.emplace();
    if (m_context->hold) answer.status.held->list = m_context->hold->bySession();
  }
  protocol::answer(request, answer);
}

protocol::ServerStatus AdministrationServer::statusOf(std::vector<SessionTable::Status> sessions) const {
  protocol::ServerStatus status{corvane::fromUtf8(protocol::versionText()),
                                static_cast<int>(corvane::processId()),
                                programs::utcText(m_context->startedAt),
                                {}};
  for (SessionTable::Status& session : sessions)
    status.sessions.push_back(listed(std::move(session)));
  return status;
}

void AdministrationServer::invite(CS_InRequest& request) {
  const auto asked = protocol::read<protocol::Invite>(request);
  protocol::Invite::Answer answer{false, {}};
  if (!m_context->invitations) {
    answer.text =
        L"aps runs without keys, and so takes no print clients of other machines: start it with --keys and "
        L"--listen-clients";
  } else if (asked.address.empty() && m_context->publicAddress.empty()) {
    answer.text =
        L"aps does not know where print clients of other machines reach it: say so with --address, or start it "
        L"with --public-address";
  } else if (asked.session < 1) {
    answer.text = L"there is no such session";
  } else {
    try {
      const std::string address = asked.address.empty() ? m_context->publicAddress : corvane::toUtf8(asked.address);
      const auto server = programs::HostAndPort::parse(address);
      const auto guest = asked.isSameUser ? Invitations::Guest::kSame : Invitations::Guest::kNext;
      const std::string code = m_context->invitations->make(asked.session, guest);
      answer = {true, corvane::fromUtf8(programs::Invitation{server, asked.session, code}.text())};
      m_context->log.line(fmt::format("session {}: somebody is invited", asked.session));
    } catch (const CS_Exception& failure) {
      answer.text = failure.detail();
    } catch (const std::invalid_argument& failure) {
      answer.text = corvane::fromUtf8(failure.what());
    }
  }
  protocol::answer(request, answer);
}

void AdministrationServer::records(CS_InRequest& request) {
  const int most = std::max(protocol::read<protocol::Records>(request).most, 0);
  protocol::Records::Answer answer;
  for (const std::string& line : m_context->log.failures().latest(static_cast<std::size_t>(most)))
    answer.lines.push_back(corvane::fromUtf8(line));
  protocol::answer(request, answer);
}

void AdministrationServer::notices(CS_InRequest& request) {
  const auto asked = protocol::read<protocol::Notices>(request);
  const std::chrono::milliseconds wait(std::max(asked.milliseconds, 0));
  NoticeList::Answer kept =
      m_context->notices.after(asked.after, std::min(wait, m_context->longestNoticeWait), m_released);
  protocol::Notices::Answer answer{kept.latest, {}};
  for (NoticeList::Entry& entry : kept.entries) {
    answer.notices.push_back({entry.number, programs::utcText(entry.time), std::move(entry.notice.kind),
                              std::move(entry.notice.line), std::move(entry.notice.values)});
  }
  protocol::answer(request, answer);
}

void AdministrationServer::jobs(CS_InRequest& request) {
  protocol::answer(request, m_context->book.find(protocol::read<protocol::Jobs>(request)));
}

void AdministrationServer::cancelJob(CS_InRequest& request) {
  const auto wanted = protocol::read<protocol::CancelJob>(request);
  const auto held = m_context->hold ? m_context->hold->cancel(wanted) : std::nullopt;
  const protocol::CancelJob::Answer answer = held ? *held : m_context->cancel.cancel(wanted);
  m_context->log.line(fmt::format("{} wants job {} canceled: {}", programs::oneLine(wanted.by), wanted.job,
                                  programs::oneLine(answer.text)));
  protocol::answer(request, answer);
}

}  // namespace aps
