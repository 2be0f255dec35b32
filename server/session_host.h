#pragma once

#include "corvane/components/component.h"
#include "server/application.h"

#include <memory>

namespace aps {

// The server's half of a print client's registration; see protocol/registration.h. One per print client. The
// session loses its client when this component is released, that is when the client's connection ends.
class SessionHost : public CS_Component {
 public:
  using Context = Application;
  explicit SessionHost(std::shared_ptr<Application> application) : m_application(std::move(application)) {}
  ~SessionHost() override;

  bool release() override;
  bool processRequest(CS_InRequest& request) override;

 private:
  void registerPrinters(CS_InRequest& request);
  SessionTable::Admission admit(int session, std::vector<Printer> printers, const CS_ClassVersionMap& versions);
  void answer(CS_InRequest& request, int session, const SessionTable::Admission& admission);
  void leave() noexcept;

  std::shared_ptr<Application> m_application;
  std::mutex m_lock;  // guards what follows: release() may come from another thread than a request
  bool m_released = false;
  int m_session = 0;                        // 0 until accepted
  const CS_Connection* m_client = nullptr;  // for comparison only
};

}  // namespace aps
