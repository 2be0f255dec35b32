#include "client/sinks/printer/ipp_printer.h"

#include "client/sinks/printer/known_printers.h"
#include "programs/text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fstream>

namespace printclient {
namespace {

constexpr double kLookSeconds = 0.25;  // how often a wait looks whether it is to end

struct DestinationDeleter {
  void operator()(cups_dest_t* destination) const { cupsFreeDests(1, destination); }
};
using Destination = std::unique_ptr<cups_dest_t, DestinationDeleter>;

// Nobody sits at this program to be asked.
const char* noPassword(const char*, http_t*, const char*, const char*, void*) {
  return nullptr;
}

std::vector<std::string> textsOf(ipp_t* answer, const char* name) {
  std::vector<std::string> texts;
  ipp_attribute_t* const found = ippFindAttribute(answer, name, IPP_TAG_ZERO);
  for (int i = 0; found != nullptr && i < ippGetCount(found); ++i) {
    const char* const text = ippGetString(found, i, nullptr);
    if (text != nullptr) texts.emplace_back(text);
  }
  return texts;
}

std::string textOf(ipp_t* answer, const char* name) {
  const std::vector<std::string> texts = textsOf(answer, name);
  return texts.empty() ? "" : texts.front();
}

int numberOf(ipp_t* answer, const char* name, int otherwise) {
  ipp_attribute_t* const found = ippFindAttribute(answer, name, IPP_TAG_ZERO);
  return found == nullptr ? otherwise : ippGetInteger(found, 0);
}

template <std::size_t kCount>
void want(ipp_t* request, const std::array<const char*, kCount>& attributes) {
  ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", static_cast<int>(kCount), nullptr,
                attributes.data());
}

// A job as a list of jobs has it: its attributes one after another, and something else between two jobs.
struct JobInList {
  JobStatus status;
  std::string name;
  int createdAt = 0;

  void take(ipp_attribute_t* attribute) {
    const char* const given = ippGetName(attribute);
    const std::string_view what = given == nullptr ? "" : given;
    const char* const text = ippGetString(attribute, 0, nullptr);
    if (what == "job-name" && text != nullptr) name = text;
    if (what == "job-state") status.state = ippGetInteger(attribute, 0);
    if (what == "job-state-message" && text != nullptr) status.message = text;
    if (what == "time-at-creation") createdAt = ippGetInteger(attribute, 0);
    for (int i = 0; what == "job-state-reasons" && i < ippGetCount(attribute); ++i)
      status.reasons.emplace_back(ippGetString(attribute, i, nullptr));
  }
  void endAt(std::vector<JobStatus>& found, const std::string& title, int begin) {
    if (status.state != 0 && name == title && createdAt >= begin) found.push_back(status);
    *this = JobInList();
  }
};

// Of libcups, for this thread.
std::string lastWords() {
  if (cupsLastError() == IPP_STATUS_ERROR_SERVICE_UNAVAILABLE) return "nobody answers there";
  const char* const words = cupsLastErrorString();
  return words == nullptr || *words == 0 ? "it does not answer" : words;
}

}  // namespace

IppPrinter::IppPrinter(const PrinterTarget& target, const PrinterPatience& patience, const std::atomic<bool>& stopping)
    : m_patience(patience), m_stopping(stopping), m_giveUp(std::chrono::steady_clock::now() + patience.silence) {
  cupsSetPasswordCB2(noPassword, nullptr);
  if (target.uri.empty()) {
    connectToScheduler(target.queue);
  } else {
    connectToAddress(target.uri);
  }
}

int IppPrinter::goesOn(http_t*, void* printer) noexcept {
  const auto& self = *static_cast<const IppPrinter*>(printer);
  const bool isToEnd = self.m_stopping && !self.m_hurries;
  return !isToEnd && std::chrono::steady_clock::now() < self.m_giveUp ? 1 : 0;
}

void IppPrinter::hurry(std::chrono::milliseconds silence) {
  m_patience.silence = std::min(m_patience.silence, silence);
  m_hurries = true;
}

void IppPrinter::usePatience() {
  httpSetTimeout(m_http.get(), kLookSeconds, goesOn, this);
}

void IppPrinter::connectToScheduler(const std::string& queue) {
  const auto wait = static_cast<int>(m_patience.connect.count());
  m_http.reset(httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1, wait, nullptr));
  if (m_http == nullptr) {
    throw IppFailure(fmt::format("no print scheduler (CUPS) answers at {}", cupsServer()), true);
  }
  usePatience();
  std::array<char, HTTP_MAX_URI> uri{};
  httpAssembleURIf(HTTP_URI_CODING_ALL, uri.data(), uri.size(), "ipp", nullptr, "localhost", 0, "/printers/%s",
                   queue.c_str());
  m_uri = uri.data();
  m_resource = m_uri.substr(m_uri.find("/printers/"));
  Message look = request(IPP_OP_GET_PRINTER_ATTRIBUTES);
  want<1>(look.get(), {"printer-state"});
  Message answer(cupsDoRequest(m_http.get(), look.release(), m_resource.c_str()), ippDelete);
  if (cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND) {
    findOnNetwork(queue);
  } else {
    checked(std::move(answer));
  }
}

void IppPrinter::findOnNetwork(const std::string& queue) {
  const Destination found(cupsGetNamedDest(m_http.get(), queue.c_str(), nullptr));
  std::array<char, HTTP_MAX_URI> resource{};
  http_t* const made = found == nullptr ? nullptr
                                        : cupsConnectDest(found.get(), CUPS_DEST_FLAGS_NONE,
                                                          static_cast<int>(m_patience.connect.count()), nullptr,
                                                          resource.data(), resource.size(), nullptr, nullptr);
  if (made == nullptr) throw IppFailure("the print scheduler (CUPS) has no queue of that name", false);
  httpClose(made);
  m_resource = resource.data();
  m_uri = "ipp://localhost" + m_resource;
}

void IppPrinter::connectToAddress(const std::string& uri) {
  const Destination printer(cupsGetDestWithURI("printer", uri.c_str()));
  std::array<char, HTTP_MAX_URI> resource{};
  if (printer != nullptr) {
    m_http.reset(cupsConnectDest(printer.get(), CUPS_DEST_FLAGS_DEVICE, static_cast<int>(m_patience.connect.count()),
                                 nullptr, resource.data(), resource.size(), nullptr, nullptr));
  }
  if (m_http == nullptr) throw IppFailure(lastWords(), true);
  usePatience();
  m_resource = resource.data();
  m_uri = uri;
  checkCertificate();
}

void IppPrinter::checkCertificate() const try {
  if (!m_uri.starts_with("ipps://")) return;
  std::array<char, HTTP_MAX_URI> scheme{}, user{}, host{}, resource{};
  int port = 0;
  httpSeparateURI(HTTP_URI_CODING_ALL, m_uri.c_str(), scheme.data(), scheme.size(), user.data(), user.size(),
                  host.data(), host.size(), &port, resource.data(), resource.size());
  cups_array_t* shown = nullptr;
  httpCopyCredentials(m_http.get(), &shown);
  const auto* const first = static_cast<const http_credential_t*>(cupsArrayFirst(shown));
  const auto* const bytes = first == nullptr ? nullptr : static_cast<const unsigned char*>(first->data);
  const std::vector<unsigned char> certificate(bytes, bytes + (first == nullptr ? 0 : first->datalen));
  httpFreeCredentials(shown);
  const std::string refusal = KnownPrinters::ofThisPerson().refusal(host.data(), port, certificate);
  if (!refusal.empty()) throw IppFailure(refusal, false);
} catch (const IppFailure&) {
  throw;
} catch (const std::runtime_error& failure) {
  throw IppFailure(failure.what(), false);
}

IppPrinter::Message IppPrinter::request(ipp_op_t operation, const std::string& user) const {
  Message made(ippNewRequest(operation), ippDelete);
  ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, m_uri.c_str());
  if (!user.empty()) {
    ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, user.c_str());
  }
  return made;
}

IppPrinter::Message IppPrinter::requestFor(ipp_op_t operation, int number, const std::string& user) const {
  Message made(ippNewRequest(operation), ippDelete);
  ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, m_uri.c_str());
  ippAddInteger(made.get(), IPP_TAG_OPERATION, IPP_TAG_INTEGER, "job-id", number);
  if (!user.empty()) {
    ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "requesting-user-name", nullptr, user.c_str());
  }
  return made;
}

std::string IppPrinter::whyNoAnswer() const {
  if (m_stopping && !m_hurries) return "the print client was stopped";
  if (std::chrono::steady_clock::now() < m_giveUp) return lastWords();
  return fmt::format("no answer came within {} s", static_cast<double>(m_patience.silence.count()) / 1000);
}

IppPrinter::Message IppPrinter::checked(Message answer) const {
  if (answer == nullptr) throw IppFailure(whyNoAnswer(), true);
  const ipp_status_t status = ippGetStatusCode(answer.get());
  if (status < IPP_STATUS_REDIRECTION_OTHER_SITE) return answer;
  const std::string said = textOf(answer.get(), "status-message");
  throw IppFailure(said.empty() ? ippErrorString(status) : fmt::format("{} ({})", said, ippErrorString(status)), false);
}

IppPrinter::Message IppPrinter::ask(Message request) {
  m_giveUp = std::chrono::steady_clock::now() + m_patience.silence;
  Message answer(cupsDoRequest(m_http.get(), request.release(), m_resource.c_str()), ippDelete);
  if (answer != nullptr) checkCertificate();  // libcups may have connected anew
  return checked(std::move(answer));
}

PrinterAbilities IppPrinter::abilities() {
  Message look = request(IPP_OP_GET_PRINTER_ATTRIBUTES);
  want<4>(look.get(),
          {"document-format-supported", "printer-is-accepting-jobs", "copies-supported", "printer-state-message"});
  const Message answer = ask(std::move(look));
  PrinterAbilities result;
  result.formats = textsOf(answer.get(), "document-format-supported");
  if (auto* accepts = ippFindAttribute(answer.get(), "printer-is-accepting-jobs", IPP_TAG_BOOLEAN)) {
    result.acceptsJobs = ippGetBoolean(accepts, 0) != 0;
  }
  if (auto* copies = ippFindAttribute(answer.get(), "copies-supported", IPP_TAG_RANGE)) {
    ippGetRange(copies, 0, &result.mostCopies);
  }
  result.message = textOf(answer.get(), "printer-state-message");
  return result;
}

int IppPrinter::createJob(const IppJob& job) {
  Message made = request(IPP_OP_CREATE_JOB, job.user);
  ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "job-name", nullptr, job.title.c_str());
  if (job.copies > 1) ippAddInteger(made.get(), IPP_TAG_JOB, IPP_TAG_INTEGER, "copies", job.copies);
  const Message answer = ask(std::move(made));
  const int number = numberOf(answer.get(), "job-id", 0);
  if (number <= 0) throw IppFailure("it gave the job no number", false);
  return number;
}

void IppPrinter::sendDocument(int number, const IppJob& job, const std::filesystem::path& file) {
  std::ifstream data(file, std::ios::binary);
  if (!data) throw std::runtime_error(fmt::format("cannot read {}", programs::fromPath(file)));
  const std::uint64_t size = std::filesystem::file_size(file);
  Message made = requestFor(IPP_OP_SEND_DOCUMENT, number, job.user);
  ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_NAME, "document-name", nullptr, job.title.c_str());
  ippAddString(made.get(), IPP_TAG_OPERATION, IPP_TAG_MIMETYPE, "document-format", nullptr, job.format.c_str());
  ippAddBoolean(made.get(), IPP_TAG_OPERATION, "last-document", 1);
  m_giveUp = std::chrono::steady_clock::now() + m_patience.silence;
  const http_status_t begun =
      cupsSendRequest(m_http.get(), made.get(), m_resource.c_str(), ippLength(made.get()) + size);
  if (begun != HTTP_STATUS_CONTINUE) throw IppFailure(whyNoAnswer(), true);
  checkCertificate();  // libcups may have connected anew
  sendFile(data, size);
  m_giveUp = std::chrono::steady_clock::now() + m_patience.silence;
  checked(Message(cupsGetResponse(m_http.get(), m_resource.c_str()), ippDelete));
}

void IppPrinter::sendFile(std::istream& file, std::uint64_t size) {
  std::array<char, 32 * 1024> piece;
  while (size > 0) {
    const auto wanted = static_cast<std::streamsize>(std::min<std::uint64_t>(piece.size(), size));
    if (!file.read(piece.data(), wanted)) throw std::runtime_error("cannot read the unfinished file");
    m_giveUp = std::chrono::steady_clock::now() + m_patience.silence;
    // The printer may have answered already, with what it does not like; the answer is read by the caller.
    if (cupsWriteRequestData(m_http.get(), piece.data(), static_cast<std::size_t>(wanted)) != HTTP_STATUS_CONTINUE)
      return;
    size -= static_cast<std::uint64_t>(wanted);
  }
}

std::optional<JobStatus> IppPrinter::status(int number) {
  Message look = requestFor(IPP_OP_GET_JOB_ATTRIBUTES, number);
  want<4>(look.get(), {"job-state", "job-state-reasons", "job-state-message", "job-printer-state-message"});
  m_giveUp = std::chrono::steady_clock::now() + m_patience.silence;
  Message answer(cupsDoRequest(m_http.get(), look.release(), m_resource.c_str()), ippDelete);
  if (cupsLastError() == IPP_STATUS_ERROR_NOT_FOUND || cupsLastError() == IPP_STATUS_ERROR_GONE) return std::nullopt;
  answer = checked(std::move(answer));
  JobStatus result;
  result.state = numberOf(answer.get(), "job-state", 0);
  result.reasons = textsOf(answer.get(), "job-state-reasons");
  result.message = textOf(answer.get(), "job-printer-state-message");
  if (result.message.empty()) result.message = textOf(answer.get(), "job-state-message");
  Message printer = request(IPP_OP_GET_PRINTER_ATTRIBUTES);
  want<3>(printer.get(), {"printer-state", "printer-state-reasons", "printer-state-message"});
  const Message said = ask(std::move(printer));
  result.isPrinterStopped = numberOf(said.get(), "printer-state", 0) == IPP_PSTATE_STOPPED;
  result.printerReasons = textsOf(said.get(), "printer-state-reasons");
  result.printerMessage = textOf(said.get(), "printer-state-message");
  return result;
}

std::string IppPrinter::deviceUri() {
  Message look = request(IPP_OP_GET_PRINTER_ATTRIBUTES);
  want<1>(look.get(), {"device-uri"});
  return textOf(ask(std::move(look)).get(), "device-uri");
}

std::vector<JobStatus> IppPrinter::jobsCalled(const std::string& title, std::chrono::seconds ago) {
  Message clock = request(IPP_OP_GET_PRINTER_ATTRIBUTES);
  want<1>(clock.get(), {"printer-up-time"});
  const int begin = numberOf(ask(std::move(clock)).get(), "printer-up-time", 0) - static_cast<int>(ago.count());
  std::vector<JobStatus> found;
  for (const char* which : {"completed", "not-completed"}) {
    Message look = request(IPP_OP_GET_JOBS);
    ippAddString(look.get(), IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "which-jobs", nullptr, which);
    ippAddInteger(look.get(), IPP_TAG_OPERATION, IPP_TAG_INTEGER, "limit", kMostJobs);
    want<6>(look.get(),
            {"job-id", "job-name", "job-state", "job-state-reasons", "job-state-message", "time-at-creation"});
    const Message answer = ask(std::move(look));
    JobInList job;
    for (ipp_attribute_t* at = ippFirstAttribute(answer.get()); at != nullptr; at = ippNextAttribute(answer.get())) {
      if (ippGetGroupTag(at) == IPP_TAG_JOB)
        job.take(at);
      else
        job.endAt(found, title, begin);
    }
    job.endAt(found, title, begin);
  }
  return found;
}

void IppPrinter::cancel(int number, const std::string& user) {
  ask(requestFor(IPP_OP_CANCEL_JOB, number, user));
}

}  // namespace printclient
