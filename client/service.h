#pragma once

#include "client/job_actions.h"
#include "client/job_follower.h"
#include "client/kept_documents.h"
#include "client/notices/job_notices.h"
#include "client/options.h"
#include "client/page/persons_page.h"
#include "client/paper_report.h"
#include "client/printer_follower.h"
#include "client/session_loop.h"

#include <list>
#include <memory>
#include <optional>
#include <vector>

namespace printclient {

// What this process does for its servers: serves each on a thread of its own, follows the person's printers for all of
// them, and follows the jobs that have been taken.
class Service {
 public:
  // At least one server; all have the same printers. The options and the output outlive the service.
  Service(const std::vector<Options>& servers, const std::shared_ptr<JobOutput>& output);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Serves until the person or the system wants an end; returns the exit code.
  int run();

 private:
  void followJobs();
  // The jobs that servers have held are remembered; where they cannot be, a server is told so.
  void rememberTaken();
  // The person's page; where there can be none, a line says why and the rest goes on.
  void openPage();
  void closePage();
  void openNotices();
  // Null where the options name the printers.
  std::unique_ptr<PrinterFollower> followPrinters();
  void usePrinters(const std::vector<PrinterOption>& printers);
  void showPrinters(const std::vector<PrinterOption>& printers);
  // On the follower's thread.
  void tellNews(const FollowedJob& job, const JobProgress& progress, bool isFirst);

  const Options& m_options;  // of the first server; what is used of them is the same for all
  const std::shared_ptr<JobOutput> m_output;
  PaperReport m_report;
  std::optional<JobFollower> m_jobs;  // from run() on
  std::optional<KeptDocuments> m_documents;
  std::optional<JobActions> m_actions;
  std::optional<PersonsPage> m_page;
  std::optional<JobNotices> m_notices;
  std::list<SessionLoop> m_loops;
};

}  // namespace printclient
