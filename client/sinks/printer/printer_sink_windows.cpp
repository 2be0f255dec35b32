#include "client/sinks/printer/ghostscript_printing.h"
#include "client/sinks/printer/printer_sink.h"
#include "client/sinks/printer/printer_words.h"
#include "client/sinks/printer/queued_job.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>
#include <winspool.h>

#include <array>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace printclient {
namespace {

std::string lastWords() {
  const DWORD error = GetLastError();
  const std::string words = corvane::toUtf8(corvane::systemErrorWords(error));
  return words.empty() ? fmt::format("error {}", error) : fmt::format("{} (error {})", words, error);
}

// A printer of this machine, raw: the spooler passes the data on as they are. Raw data carry no number of copies, and
// no call of the spooler adds one, so a document is printed as many times as copies are wanted, each time as a job of
// its own: within one job what one copy leaves behind in the printer (fonts, units, an open page) would be there for
// the next. Either all of them are in the queue, or those that are not printed yet are taken out again.
class RawPrinter {
 public:
  explicit RawPrinter(const std::string& queue) : m_name(fmt::format("the printer \"{}\"", queue)) {
    std::wstring name = corvane::fromUtf8(queue);
    if (!OpenPrinterW(name.data(), &m_printer, nullptr)) {
      throw SinkRefusal(fmt::format("{} cannot be used: {}", m_name, lastWords()),
                        "see among this machine's printers that it is there, and print again");
    }
  }
  ~RawPrinter() { ClosePrinter(m_printer); }
  RawPrinter(const RawPrinter&) = delete;
  RawPrinter& operator=(const RawPrinter&) = delete;

  // Throws SinkRefusal when the queue did not take it; nothing of this copy is in the queue then.
  void printOnce(const std::wstring& title, const ArrivedJob& job, const std::filesystem::path& file,
                 const std::atomic<bool>& stopping) {
    std::wstring name = title;
    std::wstring type = L"RAW";
    DOC_INFO_1W document{name.data(), nullptr, type.data()};
    const DWORD number = StartDocPrinterW(m_printer, 1, reinterpret_cast<LPBYTE>(&document));
    if (number == 0) refuse("refuses the job");
    try {
      send(job, file, stopping);
    } catch (...) {
      AbortPrinter(m_printer);
      throw;
    }
    if (!EndDocPrinter(m_printer)) {
      const std::string words = lastWords();
      AbortPrinter(m_printer);
      refuse("did not take the end of the document", words);
    }
    m_jobs.push_back(number);
  }

  // Takes the copies that are in the queue already out again.
  void takeBack() noexcept {
    for (const DWORD job : m_jobs)
      SetJobW(m_printer, job, 0, nullptr, JOB_CONTROL_DELETE);
  }

  const std::vector<DWORD>& jobs() const { return m_jobs; }
  const std::string& name() const { return m_name; }

 private:
  [[noreturn]] void refuse(const char* what, const std::string& words = lastWords()) const {
    throw SinkRefusal(fmt::format("{} {}: {}", m_name, what, words),
                      "see what the queue shows and that this machine's disk has room, and print again");
  }

  void send(const ArrivedJob& job, const std::filesystem::path& path, const std::atomic<bool>& stopping) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(fmt::format("cannot read {}", programs::fromPath(path)));
    std::array<char, 64 * 1024> piece;
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0) {
      if (stopping) throw SinkRefusal("the print client was stopped", "start it again, and print again");
      if (job.isCanceled()) throw SinkRefusal("you canceled it", "print it again if it is still wanted");
      write(piece.data(), static_cast<DWORD>(file.gcount()));
    }
    if (file.bad()) throw std::runtime_error(fmt::format("cannot read {}", programs::fromPath(path)));
  }

  // A short count is followed by the rest; a count of nothing is a failure, whatever the call returns.
  void write(char* data, DWORD size) {
    while (size > 0) {
      DWORD taken = 0;
      SetLastError(ERROR_DISK_FULL);
      if (!WritePrinter(m_printer, data, size, &taken) || taken == 0 || taken > size) refuse("did not take all data");
      data += taken;
      size -= taken;
    }
  }

  HANDLE m_printer = nullptr;
  const std::string m_name;
  std::vector<DWORD> m_jobs;  // in the queue, whole
};

std::unique_ptr<Sink> pdfPrinterFor(const std::string& queue) {
  auto settings = ghostscriptFor(queue, programFolder());
  return settings ? std::make_unique<CommandSink>(std::move(*settings)) : nullptr;
}

}  // namespace

PrinterSink::PrinterSink(PrinterTarget target, PrinterPatience patience)
    : m_target(std::move(target)), m_patience(patience), m_pdf(pdfPrinterFor(m_target.queue)) {}

TakenJob PrinterSink::take(const ArrivedJob& job) {
  if (job.content.isPdf() && m_pdf) {
    m_pdf->take(job);
    return {fmt::format("to the printer \"{}\" through Ghostscript", m_target.queue)};
  }
  if (job.content.isPdf()) {
    throw SinkRefusal(
        fmt::format("the printer \"{}\" gets raw data, and this is a PDF, which a queue of Windows does not convert",
                    m_target.queue),
        "install Ghostscript, bring it along with format=ps or format=raw and its own driver, or print PDF with "
        "--command and a program that can");
  }
  RawPrinter printer(m_target.queue);
  const std::wstring title = corvane::fromUtf8(printableTitle(job.ticket));
  const std::filesystem::path file = job.file.share(job.content.extension());
  const Copies wanted = copiesOf(job.ticket, file);
  const int copies = wanted.asked;
  try {
    for (int copy = 0; copy < copies; ++copy)
      printer.printOnce(title, job, file, m_stopping);
  } catch (const SinkRefusal& refusal) {
    if (printer.jobs().empty()) throw;
    printer.takeBack();
    throw SinkRefusal(fmt::format("{} after {} of {} copies, which were taken back if they had not been printed yet",
                                  refusal.what(), printer.jobs().size(), copies),
                      "see which of them come out; " + refusal.remedy());
  } catch (const std::exception&) {
    printer.takeBack();
    throw;
  }
  const std::string number = std::to_string(printer.jobs().front());
  const auto queued = std::make_shared<QueuedJob>();
  queued->printer = m_target;
  queued->numbers.assign(printer.jobs().begin(), printer.jobs().end());
  queued->since = std::chrono::steady_clock::now();
  queued->progress.state = protocol::PaperState::kWaiting;
  return {copies == 1
              ? fmt::format("to {} as job {}{}", printer.name(), number, wanted.words)
              : fmt::format("to {} as jobs {} to {}{}", printer.name(), number, printer.jobs().back(), wanted.words),
          true, queued};
}

}  // namespace printclient
