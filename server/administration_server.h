#pragma once

#include "corvane/components/component.h"
#include "protocol/administration.h"
#include "server/hold/job_hold.h"
#include "server/invitations.h"
#include "server/jobs/job_book.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/session_table.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <vector>

namespace aps {

// The application server's half of an administration tool's questions; see protocol/administration.h. A question that
// waits for a notice holds the thread of its own connection, and ends when this component is released.
class AdministrationServer : public CS_Component {
 public:
  // What it tells of.
  struct Context {
    Log& log;
    const SessionTable& sessions;
    NoticeList& notices;
    const std::optional<Invitations>& invitations;
    const std::string& publicAddress;
    const std::chrono::milliseconds& longestNoticeWait;  // for one question
    const std::chrono::system_clock::time_point& startedAt;
    JobBook& book;
    std::unique_ptr<JobHold>& hold;  // null where no jobs are held
  };

  explicit AdministrationServer(std::shared_ptr<Context> context) : m_context(std::move(context)) {}

  bool release() override;
  bool processRequest(CS_InRequest& request) override;

  // Bytes of a status reply. Past it the printers' optional texts other than the driver's name are left out; where that
  // is not enough, the request is refused.
  static constexpr std::size_t kMaxStatusBytes = 3 * 1024 * 1024;
  // Characters of a page of it, at two bytes each.
  static constexpr std::size_t kPageCharacters = 512 * 1024;

 private:
  void status(CS_InRequest& request);
  void statusPage(CS_InRequest& request);
  protocol::ServerStatus statusOf(std::vector<SessionTable::Status> sessions) const;
  void invite(CS_InRequest& request);
  void records(CS_InRequest& request);
  void notices(CS_InRequest& request);
  void jobs(CS_InRequest& request);
  void cancelJob(CS_InRequest& request);

  std::shared_ptr<Context> m_context;
  std::atomic<bool> m_released{false};
};

}  // namespace aps
