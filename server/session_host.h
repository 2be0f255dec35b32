#pragma once

#include "corvane/components/component.h"
#include "server/client_news.h"
#include "server/log.h"
#include "server/session_table.h"

#include <memory>
#include <mutex>
#include <vector>

namespace aps {

// The server's half of a print client's registration; see protocol/registration.h. One per print client. The
// session loses its client when this component is released, that is when the client's connection ends.
class SessionHost : public ClientNews::Host {
 public:
  // The parts of the server that it works with.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
  };

  explicit SessionHost(std::shared_ptr<Context> context) : m_context(std::move(context)) {}
  ~SessionHost() override;

  bool release() override;
  bool processRequest(CS_InRequest& request) override;
  void tell(const ClientNews::Failure& failure) override;

 private:
  void registerPrinters(CS_InRequest& request);
  SessionTable::Admission admit(int session, std::vector<Printer> printers, const CS_ClassVersionMap& versions);
  void answer(CS_InRequest& request, int session, const SessionTable::Admission& admission);
  void leave() noexcept;

  std::shared_ptr<Context> m_context;
  std::mutex m_lock;  // guards what follows: release() may come from another thread than a request
  bool m_released = false;
  int m_session = 0;                        // 0 until accepted
  const CS_Connection* m_client = nullptr;  // for comparison only
};

}  // namespace aps
