#pragma once

#include "corvane/components/component.h"
#include "corvane/records/program_monitor.h"
#include "server/client_news.h"
#include "server/jobs/job_book.h"
#include "server/log.h"
#include "server/notice_list.h"
#include "server/session_table.h"

#include <memory>
#include <string>

namespace aps {

// The server's half of another process's program monitor: each of its records becomes a line of the log with the
// process, the level as a word and the text, and each of its notices likewise, which is also kept for callers that wait
// for it. Its requests come one after another on one thread.
class ProgramMonitorServer : public CS_Component {
 public:
  // The parts of the server that it works with.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
    NoticeList& notices;
    JobBook& book;
  };

  explicit ProgramMonitorServer(std::shared_ptr<Context> context) : m_context(std::move(context)) {}

  int getDataType() const override { return 4; }
  bool processRequest(CS_InRequest& request) override;

 private:
  bool serve(CS_InRequest& request);
  void takeRecord(int level, int report, const std::string& text);
  void takeNotice(CS_InRequest& request);
  // The print client that a failure is about hears of it.
  void tellClient(const CS_Notice& notice);
  std::string senderOf(const CS_Notice& notice) const;

  std::shared_ptr<Context> m_context;
  std::string m_process = "a process that did not introduce itself";
  bool m_isIntroduced = false;
  int m_lastReport = 0;
  std::string m_lastFailure;
};

}  // namespace aps
