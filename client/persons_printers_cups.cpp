#include "client/persons_printers.h"
#include "corvane/base/text.h"

#include <algorithm>
#include <cstdlib>
#include <cups/cups.h>
#include <cups/pwg.h>
#include <fmt/format.h>
#include <stdexcept>

namespace printclient {
namespace {

constexpr int kConnectMilliseconds = 10000;
constexpr double kAnswerSeconds = 20;
constexpr int kMostResolution = 100000;  // as with --printer

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

  http_t* connection() const { return m_http; }
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

// What a queue says of itself and of what it takes. Empty answers for one that says nothing.
class Abilities {
 public:
  Abilities(http_t* http, const cups_dest_t& printer)
      : m_http(http), m_printer(const_cast<cups_dest_t*>(&printer)), m_info(cupsCopyDestInfo(http, m_printer)) {}
  ~Abilities() { cupsFreeDestInfo(m_info); }
  Abilities(const Abilities&) = delete;
  Abilities& operator=(const Abilities&) = delete;

  // PDF before PostScript, of what the server can make.
  protocol::DataFormat format() const {
    if (takes("application/pdf")) return protocol::DataFormat::kPdf;
    return takes("application/postscript") ? protocol::DataFormat::kPostScript : protocol::DataFormat::kRaw;
  }

  // Dots per inch: those of a document that asks for none, or the most; 0 when neither is known.
  int resolution() const {
    const int usual = highest(usualOf("printer-resolution"));
    return usual != 0 ? usual : highest(all("printer-resolution"));
  }

  // Names of paper: that of a document that asks for none, and the others as they are listed.
  std::vector<std::string> media() const {
    std::vector<std::string> names;
    for (ipp_attribute_t* const list : {usualOf(CUPS_MEDIA), all(CUPS_MEDIA)}) {
      for (int i = 0; i < ippGetCount(list); ++i) {
        const std::string keyword = ippGetString(list, i, nullptr);
        const pwg_media_t* const known = pwgMediaForPWG(keyword.c_str());
        const std::string name = known != nullptr && known->ppd != nullptr ? known->ppd : keyword;
        const bool isBound = keyword.starts_with("custom_");  // of what may be asked for, and no paper
        if (!isBound && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
      }
    }
    return names;
  }

 private:
  ipp_attribute_t* all(const char* option) const {
    return m_info == nullptr ? nullptr : cupsFindDestSupported(m_http, m_printer, m_info, option);
  }
  ipp_attribute_t* usualOf(const char* option) const {
    return m_info == nullptr ? nullptr : cupsFindDestDefault(m_http, m_printer, m_info, option);
  }
  bool takes(const char* format) const {
    ipp_attribute_t* const formats = all("document-format");
    return formats != nullptr && ippContainsString(formats, format) != 0;
  }
  static int highest(ipp_attribute_t* resolutions) {
    int most = 0;
    for (int i = 0; i < ippGetCount(resolutions); ++i) {
      int down = 0;
      ipp_res_t unit = IPP_RES_PER_INCH;
      const int across = ippGetResolution(resolutions, i, &down, &unit);
      most = std::max(most, unit == IPP_RES_PER_CM ? static_cast<int>(across * 2.54 + 0.5) : across);
    }
    return most <= kMostResolution ? most : 0;
  }

  http_t* m_http;
  cups_dest_t* m_printer;
  cups_dinfo_t* m_info;
};

PrinterOption describe(http_t* http, const cups_dest_t& found) {
  PrinterOption result;
  result.target.queue = found.name;
  const auto type = static_cast<unsigned>(std::strtoul(optionOf(found, "printer-type").c_str(), nullptr, 10));
  const std::string model = optionOf(found, "printer-make-and-model");
  std::string comment = optionOf(found, "printer-info");
  comment += (type & CUPS_PRINTER_COLOR) != 0 ? ", colour" : ", black and white";
  comment += (type & CUPS_PRINTER_DUPLEX) != 0 ? ", two-sided" : ", one-sided";
  const Abilities abilities(http, found);
  result.printer.resolution = abilities.resolution();
  comment += paperWords(abilities.media(), result.printer.resolution);
  setText(result.printer, protocol::Printer::kNameText, found.name);
  setText(result.printer, 1, comment);
  setText(result.printer, 2, optionOf(found, "printer-location"));
  setText(result.printer, 5, model.substr(0, model.find(' ')));
  setText(result.printer, 6, model);
  result.printer.isDefault = found.is_default != 0;
  // A queue without a driver takes everything and hands it on as it is.
  const bool isRaw = model.find("Raw Printer") != std::string::npos;
  result.printer.format = isRaw ? protocol::DataFormat::kRaw : abilities.format();
  return result;
}

}  // namespace

std::vector<PrinterOption> systemPrinters() {
  const Scheduler scheduler;
  std::vector<PrinterOption> printers;
  for (const cups_dest_t& found : scheduler) {
    // An instance is the same queue with other settings.
    if (found.instance == nullptr) printers.push_back(describe(scheduler.connection(), found));
  }
  return printers;
}

}  // namespace printclient
