#include "client/sinks/sink_table.h"

#include "programs/text.h"

#include <fmt/format.h>

namespace printclient {

void SinkTable::set(const std::wstring& printer, std::shared_ptr<Sink> sink) {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_sinks[printer].swap(sink);
}

std::shared_ptr<Sink> SinkTable::of(const std::wstring& printer) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (const auto own = m_sinks.find(printer); own != m_sinks.end()) return own->second;
  if (m_others) return m_others;
  throw SinkRefusal(fmt::format("this print client has no printer {}", programs::quoted(printer)),
                    "see which printers it has registered, and print to one of them");
}

void SinkTable::stop() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  for (const auto& [printer, sink] : m_sinks)
    sink->stop();
  if (m_others) m_others->stop();
}

}  // namespace printclient
