#pragma once

#include "corvane/components/component.h"
#include "corvane/components/connection.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace aps {

// Why jobs failed, told to the print clients that they were for, so that the user who prints need not look into a log
// of the server. Only the client that a printer's latest job was attached to hears of that printer's jobs, and only
// while it is there: another client of the same session, later, hears nothing of what was printed before it came.
//
// Telling never waits: each client has a short queue, and a thread of its own from its first news until it goes, so
// that one that takes nothing holds up no other. Any thread; nothing is sent while the lock is held.
class ClientNews {
 public:
  struct Failure {
    std::wstring printer, document, cause, remedy;  // the client's own name of the printer
    bool isOfPrinter = false;                       // the printer itself cannot be had; there is no document
  };
  // A print client's component on this server.
  class Host : public CS_Component {
   public:
    // Sends it to the print client; throws what it likes when the client has gone.
    virtual void tell(const Failure& failure) = 0;
  };

  ClientNews() = default;
  ~ClientNews() { endAll(); }
  ClientNews(const ClientNews&) = delete;
  ClientNews& operator=(const ClientNews&) = delete;

  // A print client that can be told from now on, by that component on its connection.
  void enter(const CS_Connection* client, CS_RCPtr<Host> host);
  // It has gone, or is about to; what waits for it is forgotten. Waits for nothing.
  void leave(const CS_Connection* client) noexcept;

  // The component of that client; null when it has left.
  CS_RCPtr<Host> hostOf(const CS_Connection* client);

  // A job of the printer, by its name on this server, goes to that client, who calls it so. Nothing when the client has
  // left.
  void jobAttached(const std::wstring& printer, const CS_Connection* client, const std::wstring& clientsName);
  // The port monitor says that a job of the printer has failed.
  void jobFailed(const std::wstring& printer, const std::wstring& document, const std::wstring& cause,
                 const std::wstring& remedy);
  // A job of the printer was cut, of which the port monitor may have said why: then that is enough.
  void jobCut(const std::wstring& printer, const std::wstring& cause, const std::wstring& remedy);

  // That client's printer, which it calls so, cannot be had on this server.
  void printerRefused(const CS_Connection* client, const std::wstring& clientsName, const std::wstring& cause,
                      const std::wstring& remedy);

  // Tells no client any more, and waits for the threads. The clients' connections have ended before.
  void endAll();

  static constexpr std::size_t kMostWaiting = 32;  // of one client; the oldest makes room
  static constexpr std::size_t kMaxText = 1000;    // characters of each text; the rest is cut

 private:
  struct Client {
    CS_RCPtr<Host> host;
    std::deque<Failure> waiting;
    bool isGone = false;
    bool isDone = false;  // its thread is about to end
    std::condition_variable changed;
    std::thread thread;
  };
  struct LatestJob {
    const CS_Connection* client;  // for comparison only; it has not left
    std::wstring clientsName;
    bool isTold = false;
  };

  void tellLocked(LatestJob& job, Failure failure);
  void tellLocked(Client& client, Failure failure);
  void run(Client& client) noexcept;
  // Joins the threads of clients that have gone.
  void joinDone();

  std::mutex m_lock;  // guards what follows
  std::list<Client> m_present;
  std::list<Client> m_leaving;  // whose threads have to be joined
  std::map<const CS_Connection*, std::list<Client>::iterator> m_clients;
  std::map<std::wstring, LatestJob> m_jobs;  // by folded local name; only of clients that are there
};

}  // namespace aps
