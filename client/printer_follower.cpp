#include "client/printer_follower.h"

#include <stdexcept>

namespace printclient {

PrinterFollower::PrinterFollower(const PersonsPrinters::Choice& choice, std::chrono::milliseconds every,
                                 OnChange onChange)
    : m_printers(choice), m_every(every), m_onChange(std::move(onChange)), m_thread([this] { follow(); }) {}

PrinterFollower::~PrinterFollower() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_isStopping = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void PrinterFollower::follow() {
  std::unique_lock<std::mutex> guard(m_lock);
  for (bool isFirst = true;; isFirst = false) {
    guard.unlock();
    try {
      // What is there at the beginning is known already.
      if (isFirst) {
        m_printers.list();
      } else if (m_printers.hasChanged()) {
        const auto printers = m_printers.list();
        if (!printers.empty()) m_onChange(printers);
      }
    } catch (const std::runtime_error&) {
      // The system does not tell at the moment.
    }
    guard.lock();
    if (m_changed.wait_for(guard, m_every, [this] { return m_isStopping; })) return;
  }
}

}  // namespace printclient
