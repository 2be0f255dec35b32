#include "server/client_news.h"

#include "protocol/print_job.h"
#include "server/printer_name.h"

#include <algorithm>
#include <exception>
#include <vector>

namespace aps {
namespace {

// Of what it answered itself, the print client has said more than the port monitor knows.
bool isClientsOwnAnswer(const std::wstring& cause) {
  using enum protocol::PrintResult;
  const auto answers = {kNoData, kDiskFailure, kIncompletePdf, kNoJob, kBrokenData};
  return std::any_of(answers.begin(), answers.end(),
                     [&cause](protocol::PrintResult answer) { return cause == protocol::textOf(answer); });
}

void shorten(std::wstring& text) {
  if (text.size() > ClientNews::kMaxText) text.resize(ClientNews::kMaxText);
}

}  // namespace

void ClientNews::enter(const CS_Connection* client, CS_RCPtr<Host> host) {
  joinDone();
  leave(client);
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto entered = m_present.emplace(m_present.end());
  entered->host = std::move(host);
  m_clients[client] = entered;
}

void ClientNews::leave(const CS_Connection* client) noexcept {
  CS_RCPtr<Host> host;  // given back after the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_clients.find(client);
  if (known == m_clients.end()) return;
  const auto gone = known->second;
  m_clients.erase(known);
  std::erase_if(m_jobs, [client](const auto& job) { return job.second.client == client; });
  std::swap(gone->host, host);
  gone->isGone = true;
  gone->changed.notify_all();
  if (gone->thread.joinable()) {
    m_leaving.splice(m_leaving.end(), m_present, gone);
  } else {
    m_present.erase(gone);
  }
}

CS_RCPtr<ClientNews::Host> ClientNews::hostOf(const CS_Connection* client) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_clients.find(client);
  return known == m_clients.end() ? CS_RCPtr<Host>() : known->second->host;
}

void ClientNews::jobAttached(const std::wstring& printer, const CS_Connection* client,
                             const std::wstring& clientsName) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_clients.count(client) == 0) return;
  m_jobs[foldedName(printer)] = {client, clientsName};
}

void ClientNews::jobFailed(const std::wstring& printer, const std::wstring& document, const std::wstring& cause,
                           const std::wstring& remedy) {
  joinDone();
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto job = m_jobs.find(foldedName(printer));
  if (job == m_jobs.end()) return;
  if (isClientsOwnAnswer(cause)) {
    job->second.isTold = true;
  } else {
    tellLocked(job->second, {job->second.clientsName, document, cause, remedy});
  }
}

void ClientNews::jobCut(const std::wstring& printer, const std::wstring& cause, const std::wstring& remedy) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto job = m_jobs.find(foldedName(printer));
  if (job == m_jobs.end() || job->second.isTold) return;
  tellLocked(job->second, {job->second.clientsName, L"", cause, remedy});
}

void ClientNews::printerRefused(const CS_Connection* client, const std::wstring& clientsName, const std::wstring& cause,
                                const std::wstring& remedy) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto known = m_clients.find(client);
  if (known != m_clients.end()) tellLocked(*known->second, {clientsName, L"", cause, remedy, true});
}

void ClientNews::tellLocked(LatestJob& job, Failure failure) {
  job.isTold = true;
  tellLocked(*m_clients.at(job.client), std::move(failure));
}

void ClientNews::tellLocked(Client& client, Failure failure) {
  for (std::wstring* text : {&failure.printer, &failure.document, &failure.cause, &failure.remedy})
    shorten(*text);
  if (client.waiting.size() >= kMostWaiting) client.waiting.pop_front();
  client.waiting.push_back(std::move(failure));
  client.changed.notify_all();
  if (client.thread.joinable()) return;
  try {
    client.thread = std::thread([this, &client] { run(client); });
  } catch (const std::exception&) {
    // It waits for the next news; the log has it all.
  }
}

void ClientNews::run(Client& client) noexcept {
  std::unique_lock<std::mutex> guard(m_lock);
  while (true) {
    client.changed.wait(guard, [&client] { return client.isGone || !client.waiting.empty(); });
    if (client.isGone) break;
    const Failure failure = std::move(client.waiting.front());
    client.waiting.pop_front();
    {
      const CS_RCPtr<Host> host = client.host;
      guard.unlock();
      try {
        host->tell(failure);
      } catch (...) {
        // Its connection has ended, and it is about to leave.
      }
    }  // perhaps the last reference: given back without the lock
    guard.lock();
  }
  client.isDone = true;
}

void ClientNews::joinDone() {
  std::list<Client> done;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (auto at = m_leaving.begin(); at != m_leaving.end();) {
      const auto next = std::next(at);
      if (at->isDone) done.splice(done.end(), m_leaving, at);
      at = next;
    }
  }
  for (Client& client : done)
    client.thread.join();
}

void ClientNews::endAll() {
  std::vector<const CS_Connection*> clients;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const auto& [client, entry] : m_clients)
      clients.push_back(client);
  }
  for (const CS_Connection* client : clients)
    leave(client);
  std::list<Client> leaving;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    leaving.swap(m_leaving);
  }
  for (Client& client : leaving)
    client.thread.join();
}

}  // namespace aps
