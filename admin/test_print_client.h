#pragma once

#include "admin/test_session.h"
#include "corvane/component.h"

#include <memory>

namespace admin {

// The component of one job that comes to a test session: it takes the port monitor's requests and keeps the data. They
// come one after another, on the bridge's thread.
class TestPrintClient : public CS_Component {
 public:
  using Context = Arrival;
  explicit TestPrintClient(std::shared_ptr<Arrival> arrival) : m_arrival(std::move(arrival)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  std::shared_ptr<Arrival> m_arrival;
};

}  // namespace admin
