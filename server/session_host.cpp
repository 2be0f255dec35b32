#include "server/session_host.h"

#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/session.h"
#include "server/paper_notice.h"
#include "server/places.h"
#include "server/printer_name.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace aps {
namespace {

std::string quotedList(const std::vector<std::wstring>& names) {
  std::vector<std::string> list;
  for (const std::wstring& name : names)
    list.push_back(programs::quoted(name));
  return fmt::format("{}", fmt::join(list, ", "));
}

std::string nameOf(int session) {
  return fmt::format("session {}", session);
}

}  // namespace

SessionHost::~SessionHost() {
  leave();
}

bool SessionHost::release() {
  leave();
  return CS_Component::release();
}

void SessionHost::leave() noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_released = true;
  if (m_session == 0) return;
  m_context->clientNews.leave(m_client);
  if (m_context->sessions.leave(m_session, m_client)) {
    const std::string name = nameOf(m_session);
    m_context->log.repeatable(
        name, fmt::format("{}: the print client has gone; its printers stay known until it comes back", name));
  }
  m_session = 0;
} catch (...) {
}

bool SessionHost::processRequest(CS_InRequest& request) {
  return logThrown(
      m_context->log, [] { return "a print client's request"; }, request.number(),
      [&] {
        switch (static_cast<protocol::SessionRequest>(request.number())) {
          case protocol::SessionRequest::kRegister:
            registerPrinters(request);
            return true;
          case protocol::SessionRequest::kPaperNews:
            takeNews(request);
            return true;
          default:
            return CS_Component::processRequest(request);
        }
      });
}

void SessionHost::takeNews(CS_InRequest& request) {
  const auto news = protocol::read<protocol::PaperNews>(request);
  std::unique_lock<std::mutex> guard(m_lock);
  const int session = m_session;
  const bool isAllowed = m_news.take();
  guard.unlock();
  const std::string name = nameOf(session);
  if (!isAllowed) {
    m_context->log.refusal("news of jobs of " + name,
                           fmt::format("{}: its print client tells of more than {} changes of its jobs in a second; "
                                       "what is too much is not kept",
                                       name, kNewsPerSecond));
    return;
  }
  const auto found = m_context->sessions.find(localPrinterName(news.printer, session));
  if (!found || found->session != session || session == 0) {
    // It may have registered others since.
    m_context->log.repeatable("news of jobs of " + name,
                              fmt::format("{}: its print client tells of a job for {}, which it has not registered; "
                                          "that is not kept",
                                          name, programs::quoted(news.printer)));
    return;
  }
  m_context->book.paperNews(news, session, localPrinterName(found->printer.name(), session));
  CS_Notice notice = paperNotice(news, session, localPrinterName(found->printer.name(), session));
  m_context->log.line(fmt::format("{}: {}", name, programs::oneLine(notice.line)));
  m_context->notices.addOfClient(session, std::move(notice));
}

void SessionHost::tell(const ClientNews::Failure& failure) {
  const CS_RCPtr<CS_Component> self(this);
  if (failure.isOfPrinter) {
    protocol::tell(self, protocol::PrinterRefused{failure.printer, failure.cause, failure.remedy});
  } else {
    protocol::tell(self, protocol::JobFailed{failure.printer, failure.document, failure.cause, failure.remedy});
  }
}

void SessionHost::registerPrinters(CS_InRequest& request) {
  auto registration = protocol::read<protocol::Registration>(request);
  answer(request, registration.session,
         admit(registration.session, std::move(registration.printers), registration.versions));
}

SessionTable::Admission SessionHost::admit(int session, std::vector<Printer> printers,
                                           const CS_ClassVersionMap& versions) {
  const CS_RCPtr<CS_Connection> client = getConnection();
  if (!client) throw CS_Exception(corvane::kMissingObject, L"the print client has no connection");
  SessionTable::Admission admission;
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_released) throw CS_Exception(corvane::kConnectionLost, nullptr);
  if (m_session != 0 && m_session != session) {
    admission.refusal = fmt::format(L"this print client serves session {} already", m_session);
  } else if (const auto& peer = client->peerIdentity(); peer) {
    admission.refusal = sessionRefusal(*peer, session);
  }
  if (admission.accepted()) {
    admission = m_context->sessions.enter(session, std::move(printers), versions, client);
    if (admission.accepted()) {
      m_session = session;
      m_client = client.get();
      m_context->clientNews.enter(m_client, CS_RCPtr<ClientNews::Host>(this));
    }
  }
  return admission;
}

void SessionHost::answer(CS_InRequest& request, int session, const SessionTable::Admission& admission) {
  const std::string name = nameOf(session);
  if (admission.accepted()) {
    if (admission.forgotten) {
      m_context->log.refusal(
          "forgotten sessions",
          fmt::format("{} and its printers were forgotten to make room for {}; they are known again when its print "
                      "client comes back; aps remembers more with a higher --max-sessions",
                      nameOf(*admission.forgotten), name));
    }
    m_context->log.repeatable(name,
                              fmt::format("{}: a print client registers {}", name, quotedList(admission.localNames)));
  } else {
    m_context->log.refusal(
        "registrations", fmt::format("{}: a print client was refused: {}", name, programs::oneLine(admission.refusal)));
  }
  protocol::answer(request,
                   protocol::Registration::Answer{admission.accepted(), admission.refusal, admission.localNames});
  if (admission.accepted() && m_context->hold) m_context->hold->clientCame(session);
}

}  // namespace aps
