#pragma once

#include "client/job_output.h"
#include "client/options.h"
#include "client/paper_report.h"
#include "corvane/components/connection.h"
#include "corvane/wire/heartbeat.h"
#include "protocol/session.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace printclient {

// The life of a print client: connects to the server, registers the printers, serves jobs, and starts again when the
// connection is lost, with pauses that grow while the server is away, but stay so short that its jobs, for which the
// server waits, find it back (aps --client-wait). What is the same in every attempt is said once. run() blocks its
// thread; stop() may be called from any other one.
class SessionLoop {
 public:
  // The options and the report outlive it.
  SessionLoop(const Options& options, std::shared_ptr<JobOutput> output, PaperReport& report)
      : m_options(options),
        m_output(std::move(output)),
        m_report(report),
        m_heartbeat(corvane::Patience().faster(options.pace)),
        m_printers(options.printers) {}

  // Returns the exit code: 0 after stop(), 1 when the server refused the first registration, or the
  // session's key was missing or unusable before it.
  int run();
  void stop();
  // The person's printers are these now. Where the server has the earlier ones, it gets them at once, on the connection
  // that is there; from one other thread.
  void usePrinters(const std::vector<protocol::Printer>& printers);

  static constexpr std::chrono::milliseconds kFirstPause{500};
  static constexpr std::chrono::milliseconds kLongestPause{2000};
  static_assert(kLongestPause < std::chrono::seconds(5), "a session is to be back within 5 s of its server");

 private:
  enum class Outcome { kLost, kAway, kRefused, kStopped };

  // After stop() the outcome is kStopped, however the connection ended.
  Outcome serveOnce();
  void useKey(CS_Connection& connection);
  // Registers the printers as they are when it returns.
  protocol::Registration::Answer registerPrinters(const CS_RCPtr<CS_Connection>& connection);
  // With the names that they have on this server.
  std::vector<protocol::Printer> asTheyAreThere(std::vector<protocol::Printer> printers) const;
  // Returns when the connection has ended.
  void serveRegistered(CS_Connection& connection, const protocol::Registration::Answer& registration);
  void removeLeftovers();
  // Returns when the pause is over, or at once when the loop is to stop.
  void pause(std::chrono::milliseconds time);
  // Makes the connection the one that stop() ends; false when the loop is to stop already.
  bool hold(const CS_RCPtr<CS_Connection>& connection);
  bool isStopping();
  // What stands on the board about this server.
  void show(const std::string& state, bool isConnected);
  // A line for the person.
  void say(const std::string& text);
  // The same, unless it is the last one of its kind again.
  void sayOnce(const std::string& text, std::string& last);

  const Options& m_options;
  const std::shared_ptr<JobOutput> m_output;
  PaperReport& m_report;
  corvane::Heartbeat m_heartbeat;
  bool m_wasRegistered = false;
  std::string m_lastTrouble;
  std::string m_lastPause;

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  bool m_stopping = false;
  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_registered;  // on it, once the server has the printers
  std::vector<protocol::Printer> m_printers;
  int m_printersUsed = 0;  // changes whenever the printers do
};

}  // namespace printclient
