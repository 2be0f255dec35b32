#include "client/page/page_answer.h"

#include "client/job_file.h"
#include "client/page/page_files.h"

#include <charconv>
#include <fmt/format.h>
#include <system_error>

namespace printclient {
namespace {

constexpr std::string_view kPagePolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";
// Of everything else: nothing in it may load, run or be framed. The browser shows a PDF with a viewer of its own.
constexpr std::string_view kOtherPolicy =
    "default-src 'none'; style-src 'unsafe-inline'; object-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";
constexpr std::string_view kNothing = "There is nothing here.\n";
constexpr std::string_view kPdf = ".pdf";

PageAnswer refused(unsigned status, std::string_view line) {
  PageAnswer answer;
  answer.status = status;
  answer.body = line;
  return answer;
}

PageAnswer file(std::string_view type, std::string_view body) {
  PageAnswer answer;
  answer.type = type;
  answer.body = body;
  return answer;
}

// A name for a header: bytes that are no letters or digits as %41.
std::string percentEncoded(std::string_view name) {
  std::string encoded;
  for (const char c : name) {
    const bool isPlain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
    encoded += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return encoded;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> PageAnswer::headers() const {
  std::vector<std::pair<std::string, std::string>> all = {
      {"Content-Type", type},
      {"Cache-Control", "no-store"},
      {"X-Content-Type-Options", "nosniff"},
      {"X-Frame-Options", "DENY"},
      {"Referrer-Policy", "no-referrer"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cross-Origin-Opener-Policy", "same-origin"},
      {"Content-Security-Policy", std::string(type.starts_with("text/html") ? kPagePolicy : kOtherPolicy)}};
  if (!disposition.empty()) all.emplace_back("Content-Disposition", disposition);
  return all;
}

PageAnswer PageAnswers::to(const PageRequest& request) {
  if (const auto refusal = m_guard.refusalOf(request)) return refused(refusal->status, refusal->line);
  const std::string_view path = PageGuard::pathOf(request);
  constexpr std::string_view kJobs = "jobs/";
  if (path.starts_with(kJobs)) return toJob(request, path.substr(kJobs.size()));
  if (request.method != "GET") return refused(405, "This is not an action.\n");
  if (path.empty()) return file("text/html; charset=utf-8", kPageHtml);
  if (path == "page.css") return file("text/css; charset=utf-8", kPageCss);
  if (path == "page.js") return file("text/javascript; charset=utf-8", kPageScript);
  if (path != "events") return refused(404, kNothing);
  PageAnswer answer;
  answer.type = "text/event-stream; charset=utf-8";
  answer.isStream = true;
  return answer;
}

PageAnswer PageAnswers::toJob(const PageRequest& request, std::string_view rest) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc()) return refused(404, kNothing);
  const std::string_view what(end, static_cast<std::size_t>(rest.data() + rest.size() - end));
  const bool isAction = what == "/cancel" || what == "/again";
  const bool isDocument = what == "/view" || what == "/file";
  if (!isAction && !isDocument) return refused(404, kNothing);
  if (isAction != (request.method == "POST")) return refused(405, "This is done in another way.\n");
  if (isDocument) return document(number, what == "/view");
  if (!m_board.find(number)) return refused(404, "This job is not known any more.\n");
  const std::string why = what == "/cancel" ? m_actions.cancel(number) : m_actions.printAgain(number);
  return why.empty() ? refused(202, "It has begun.\n") : refused(409, why + "\n");
}

PageAnswer PageAnswers::document(std::uint64_t number, bool isToLookAt) const {
  const auto kept = m_documents != nullptr ? m_documents->find(number) : nullptr;
  if (kept == nullptr) return refused(404, "The document of this job is not kept any more.\n");
  const bool isPdf = kept->extension == kPdf;
  PageAnswer answer;
  answer.document = kept;
  // Whatever else came is never shown by the browser, only put down as a file.
  answer.type = isPdf ? "application/pdf" : "application/octet-stream";
  const std::string name =
      fileNameFor(kept->ticket.documentName, kept->ticket.jobName, kept->extension) + kept->extension;
  answer.disposition =
      fmt::format("{}; filename*=UTF-8''{}", isToLookAt && isPdf ? "inline" : "attachment", percentEncoded(name));
  return answer;
}

}  // namespace printclient
