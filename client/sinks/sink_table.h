#pragma once

#include "client/sinks/sink.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace printclient {

// Which sink takes the jobs of which printer. Safe from any thread.
class SinkTable {
 public:
  // The jobs of a printer without a sink of its own go to this one; without it they are refused.
  explicit SinkTable(std::shared_ptr<Sink> others = nullptr) : m_others(std::move(others)) {}

  void set(const std::wstring& printer, std::shared_ptr<Sink> sink);
  // The sink of a printer, by the name that the client knows it by. Throws SinkRefusal when there is none.
  std::shared_ptr<Sink> of(const std::wstring& printer) const;
  // Sink::stop() of all.
  void stop() noexcept;

 private:
  const std::shared_ptr<Sink> m_others;
  mutable std::mutex m_lock;  // guards what follows
  std::map<std::wstring, std::shared_ptr<Sink>> m_sinks;
};

}  // namespace printclient
