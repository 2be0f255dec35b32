#pragma once

#include "client/job_actions.h"
#include "client/kept_documents.h"
#include "client/page/page_answer.h"
#include "client/page/page_guard.h"
#include "client/page/page_link.h"
#include "client/page/page_server.h"

#include <filesystem>
#include <string>

namespace printclient {

// The person's view of the jobs of this process: the page, what stands behind it, and the document that leads to it.
// Ends with the object, before the actions and documents that it was given.
class PersonsPage {
 public:
  // Throws std::exception with the cause when there can be no page.
  PersonsPage(const std::filesystem::path& folder, JobBoard& board, KeptDocuments* documents, JobActions& actions)
      : m_answers(m_guard, board, documents, actions),
        m_server(m_guard, m_answers, board, PageServer::Limits(),
                 [documents] {
                   if (documents != nullptr) documents->dropOld();
                 }),
        m_link(folder, m_guard.address()) {}

  std::string address() const { return m_guard.address(); }

 private:
  PageGuard m_guard;
  PageAnswers m_answers;
  PageServer m_server;
  PageLink m_link;
};

}  // namespace printclient
