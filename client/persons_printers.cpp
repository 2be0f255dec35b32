#include "client/persons_printers.h"

#include "corvane/base/text.h"
#include "programs/name_pattern.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <utility>

namespace printclient {
namespace {

bool fitsAny(const PrinterOption& candidate, const std::vector<std::string>& patterns) {
  const std::string name = corvane::toUtf8(candidate.printer.name());
  return std::any_of(patterns.begin(), patterns.end(),
                     [&name](const std::string& pattern) { return programs::fitsPattern(name, pattern); });
}

bool isSame(const PrinterOption& one, const PrinterOption& other) {
  return one.printer.texts == other.printer.texts && one.printer.isDefault == other.printer.isDefault &&
         one.printer.format == other.printer.format && one.printer.resolution == other.printer.resolution &&
         one.target.queue == other.target.queue;
}

}  // namespace

std::string paperWords(const std::vector<std::string>& papers, int resolution) {
  constexpr std::size_t kNamed = 6;
  std::string words = resolution != 0 ? fmt::format(", {} dpi", resolution) : "";
  // One more is named rather than counted.
  const std::size_t named = papers.size() > kNamed + 1 ? kNamed : papers.size();
  for (std::size_t i = 0; i < named; ++i)
    words += fmt::format("{} {}", i == 0 ? ", paper" : ",", papers[i]);
  if (named < papers.size()) words += fmt::format(" and {} more", papers.size() - named);
  return words;
}

std::vector<PrinterOption> PersonsPrinters::chosen() const {
  std::vector<PrinterOption> printers = systemPrinters();
  std::erase_if(printers, [this](const PrinterOption& candidate) {
    return (!m_choice.only.empty() && !fitsAny(candidate, m_choice.only)) || fitsAny(candidate, m_choice.except);
  });
  std::sort(printers.begin(), printers.end(), [](const PrinterOption& one, const PrinterOption& other) {
    return one.printer.name() < other.printer.name();
  });
  return printers;
}

std::vector<PrinterOption> PersonsPrinters::list() {
  m_last = chosen();
  return m_last;
}

bool PersonsPrinters::hasChanged() try {
  std::vector<PrinterOption> now = chosen();
  const bool isOther = !std::equal(now.begin(), now.end(), m_last.begin(), m_last.end(), isSame);
  m_last = std::move(now);
  return isOther;
} catch (const std::runtime_error&) {
  return false;
}

void PersonsPrinters::addTo(Options& options) {
  if (!options.printers.empty()) return;
  PersonsPrinters printers({options.only, options.except});
  for (PrinterOption& found : printers.list()) {
    options.targets[found.printer.name()] = found.target;
    options.printers.push_back(std::move(found.printer));
  }
  options.printersAreOwn = !options.printers.empty();
  if (options.printersAreOwn) return;
  const bool isChosen = !options.only.empty() || !options.except.empty();
  throw std::runtime_error(isChosen ? "this user has no printer that --only and --except leave; see their names in the "
                                      "system's list of printers, or name one with --printer"
                                    : "this user has no printers on this machine; add one to the system, or name one "
                                      "with --printer");
}

}  // namespace printclient
