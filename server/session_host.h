#pragma once

#include "corvane/components/component.h"
#include "programs/allowance.h"
#include "server/client_news.h"
#include "server/hold/job_hold.h"
#include "server/jobs/job_book.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/session_table.h"

#include <memory>
#include <mutex>
#include <vector>

namespace aps {

// The server's half of a print client's registration; see protocol/session.h. Keeps what the client tells of the
// jobs that it has taken. One per print client. The
// session loses its client when this component is released, that is when the client's connection ends.
class SessionHost : public ClientNews::Host {
 public:
  // The parts of the server that it works with.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
    NoticeList& notices;
    JobBook& book;
    std::unique_ptr<JobHold>& hold;  // null where no jobs are held
  };
  // How often a client may tell of its jobs; what it tells beyond that is not kept.
  static constexpr int kNewsAtOnce = 100;
  static constexpr int kNewsPerSecond = 20;

  explicit SessionHost(std::shared_ptr<Context> context) : m_context(std::move(context)) {}
  ~SessionHost() override;

  bool release() override;
  bool processRequest(CS_InRequest& request) override;
  void tell(const ClientNews::Failure& failure) override;

 private:
  void registerPrinters(CS_InRequest& request);
  // What has become of a job: kept as a notice when the job is one of this session's printers.
  void takeNews(CS_InRequest& request);
  SessionTable::Admission admit(int session, std::vector<Printer> printers, const CS_ClassVersionMap& versions);
  void answer(CS_InRequest& request, int session, const SessionTable::Admission& admission);
  void leave() noexcept;

  std::shared_ptr<Context> m_context;
  std::mutex m_lock;  // guards what follows: release() may come from another thread than a request
  bool m_released = false;
  int m_session = 0;  // 0 until accepted
  programs::Allowance m_news{kNewsAtOnce, kNewsPerSecond};
  const CS_Connection* m_client = nullptr;  // for comparison only
};

}  // namespace aps
