#pragma once

#include "client/job_actions.h"
#include "client/job_board.h"
#include "client/kept_documents.h"
#include "client/page/page_guard.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace printclient {

// What a request is answered with: a text, a document that is kept, or the stream of events, which goes on.
struct PageAnswer {
  unsigned status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body = {};
  std::string disposition = {};  // how the browser takes it; empty for as it likes
  std::shared_ptr<const KeptDocument> document = nullptr;
  bool isStream = false;

  // The headers that every answer has beside those of HTTP itself, its type and disposition among them.
  std::vector<std::pair<std::string, std::string>> headers() const;
};

// The page behind its guard: what each request means. Used by one thread; the others are told and asked without
// waiting.
class PageAnswers {
 public:
  // All outlive the object. The documents may be null where none are kept.
  PageAnswers(const PageGuard& guard, JobBoard& board, const KeptDocuments* documents, JobActions& actions)
      : m_guard(guard), m_board(board), m_documents(documents), m_actions(actions) {}

  PageAnswer to(const PageRequest& request);
  // Whether it is the person who asks.
  bool isPersons(const PageRequest& request) const { return !m_guard.refusalOf(request); }

 private:
  PageAnswer toJob(const PageRequest& request, std::string_view rest);
  PageAnswer document(std::uint64_t number, bool isToLookAt) const;

  const PageGuard& m_guard;
  JobBoard& m_board;
  const KeptDocuments* const m_documents;
  JobActions& m_actions;
};

}  // namespace printclient
