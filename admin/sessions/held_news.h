#pragma once

#include "admin/base/output.h"
#include "protocol/administration.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace admin {

// Tells what becomes of the jobs that the server holds for print clients that are away: a line when one is held, is
// delivered, or ends otherwise, from the server's notices. Names of documents are left out, because the lines may go
// into a log. Belongs to one thread.
class HeldNews {
 public:
  // The notices after that number; -1 requests the latest number only.
  using Ask = std::function<protocol::Notices::Answer(int after)>;

  explicit HeldNews(Output& output) : m_output(output) {}

  // Handles an answer of the server, and asks it for what is new since the last one. The first time nothing is new; the
  // second time it is told what is held already.
  void see(const protocol::ServerStatus& facts, const Ask& ask);

 private:
  using Run = std::pair<int, std::wstring>;  // of a server: its process, and since when

  void tellPresent(const protocol::ServerStatus& facts);
  void tell(const protocol::Notice& notice);
  void tellMissing(int count);

  Output& m_output;
  std::optional<Run> m_run;
  int m_after = 0;
  bool m_hasToldPresent = false;
};

}  // namespace admin
