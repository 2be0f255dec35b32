#include "client/persons_printers.h"
#include "client/sinks/printer/ipp_printer.h"
#include "corvane/base/text.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fmt/format.h>
#include <stdexcept>

namespace printclient {
namespace {

constexpr int kConnectMilliseconds = 10000;
constexpr double kAnswerSeconds = 20;

class Scheduler {
 public:
  Scheduler()
      : m_http(httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1, kConnectMilliseconds,
                            nullptr)) {
    if (m_http == nullptr) {
      throw std::runtime_error(
          fmt::format("the printers of this user are not known: no print scheduler (CUPS) answers "
                      "at {}; start it, or name printers with --printer",
                      cupsServer()));
    }
    httpSetTimeout(m_http, kAnswerSeconds, nullptr, nullptr);
    m_count = cupsGetDests2(m_http, &m_printers);
  }
  ~Scheduler() {
    cupsFreeDests(m_count, m_printers);
    httpClose(m_http);
  }
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  const cups_dest_t* begin() const { return m_printers; }
  const cups_dest_t* end() const { return m_printers + m_count; }

 private:
  http_t* m_http;
  cups_dest_t* m_printers = nullptr;
  int m_count = 0;
};

std::string optionOf(const cups_dest_t& printer, const char* name) {
  const char* const value = cupsGetOption(name, printer.num_options, printer.options);
  return value == nullptr ? "" : value;
}

void setText(protocol::Printer& printer, std::size_t index, const std::string& text) {
  if (!text.empty()) printer.texts[index] = corvane::fromUtf8(corvane::printable(std::string_view(text)));
}

// What the queue takes of what the server can make: PDF before PostScript, and a queue without a driver what its device
// wants.
protocol::DataFormat formatOf(const PrinterTarget& target, bool isRaw) {
  static const std::atomic<bool> kGoesOn{false};
  if (isRaw) return protocol::DataFormat::kRaw;
  try {
    PrinterPatience patience;
    patience.silence = std::chrono::milliseconds(kConnectMilliseconds);
    const std::vector<std::string> formats = IppPrinter(target, patience, kGoesOn).abilities().formats;
    const auto takes = [&formats](const char* format) {
      return std::find(formats.begin(), formats.end(), format) != formats.end();
    };
    if (takes("application/pdf")) return protocol::DataFormat::kPdf;
    if (takes("application/postscript")) return protocol::DataFormat::kPostScript;
  } catch (const IppFailure&) {
    // Of one that has gone meanwhile the next list tells.
  }
  return protocol::DataFormat::kRaw;
}

PrinterOption describe(const cups_dest_t& found) {
  PrinterOption result;
  result.target.queue = found.name;
  const auto type = static_cast<unsigned>(std::strtoul(optionOf(found, "printer-type").c_str(), nullptr, 10));
  const std::string model = optionOf(found, "printer-make-and-model");
  std::string comment = optionOf(found, "printer-info");
  comment += (type & CUPS_PRINTER_COLOR) != 0 ? ", colour" : ", black and white";
  comment += (type & CUPS_PRINTER_DUPLEX) != 0 ? ", two-sided" : ", one-sided";
  setText(result.printer, protocol::Printer::kNameText, found.name);
  setText(result.printer, 1, comment);
  setText(result.printer, 2, optionOf(found, "printer-location"));
  setText(result.printer, 5, model.substr(0, model.find(' ')));
  setText(result.printer, 6, model);
  result.printer.isDefault = found.is_default != 0;
  result.printer.format = formatOf(result.target, model.find("Raw Printer") != std::string::npos);
  return result;
}

}  // namespace

std::vector<PrinterOption> systemPrinters() {
  const Scheduler scheduler;
  std::vector<PrinterOption> printers;
  for (const cups_dest_t& found : scheduler) {
    // An instance is the same queue with other settings.
    if (found.instance == nullptr) printers.push_back(describe(found));
  }
  return printers;
}

}  // namespace printclient
