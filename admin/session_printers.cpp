#include "admin/session_printers.h"

#include "admin/failure.h"
#include "admin/places.h"
#include "admin/registry_value.h"
#include "admin/spooler_port.h"
#include "corvane/text.h"

#include <algorithm>

namespace admin {
namespace {

using corvane::toUtf8;

constexpr wchar_t kFallbackName[] = L"FallbackDriver";

bool holds(const std::vector<std::wstring>& names, const std::wstring& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::wstring configuredDriver() {
  const auto value = readValue(Places().productKey() + L"\\Printers", kFallbackName);
  return value ? value->text().value_or(std::wstring()) : std::wstring();
}

// Empty when none is installed.
std::wstring driverFor(const ClientPrinterFacts& printer, const std::wstring& substitute,
                       const std::vector<std::wstring>& installed) {
  if (holds(installed, printer.driver())) return printer.driver();
  return holds(installed, substitute) ? substitute : std::wstring();
}

std::string refusal(const ClientPrinterFacts& printer, const std::wstring& substitute) {
  std::string text = "printer \"" + toUtf8(printer.localName) + "\" needs the driver \"" + toUtf8(printer.driver()) +
                     "\", which is not installed";
  if (!substitute.empty()) text += ", nor is \"" + toUtf8(substitute) + "\" in its place";
  return text;
}

bool isAsPlanned(const SpoolerPrinter& present, const SpoolerPrinter& planned) {
  return present.port == planned.port && present.driver == planned.driver && present.processor == planned.processor &&
         present.comment == planned.comment;
}

const SpoolerPrinter* find(const std::vector<SpoolerPrinter>& printers, const std::wstring& name) {
  for (const SpoolerPrinter& printer : printers) {
    if (printer.name == name) return &printer;
  }
  return nullptr;
}

}  // namespace

bool SessionChange::isUp(const std::wstring& name) const {
  return holds(added, name) || holds(changed, name) || holds(kept, name);
}

PrinterPlan planPrinters(const SessionFacts& session, const SessionOptions& options,
                         const std::vector<std::wstring>& installed) {
  const std::wstring substitute = options.driver.empty() ? configuredDriver() : options.driver;
  const std::wstring processor = options.processor.empty() ? L"winprint" : options.processor;
  PrinterPlan plan;
  for (const ClientPrinterFacts& printer : session.printers) {
    const std::wstring driver = driverFor(printer, substitute, installed);
    if (driver.empty()) {
      plan.refused.push_back(refusal(printer, substitute));
    } else {
      plan.printers.push_back({printer.localName, sessionPort(static_cast<unsigned>(session.number)), driver, processor,
                               L"Client printer: " + printer.clientName()});
    }
  }
  return plan;
}

SessionChange bringUp(const SessionFacts& session, const SessionOptions& options) {
  const PrinterPlan plan = planPrinters(session, options, installedDrivers());
  const std::vector<SpoolerPrinter>& planned = plan.printers;
  const std::wstring port = sessionPort(static_cast<unsigned>(session.number));
  SessionChange change;
  change.refused = plan.refused;
  change.portAdded = addPort(port);
  const std::vector<SpoolerPrinter> present = localPrinters();
  for (const SpoolerPrinter& printer : planned) {
    const SpoolerPrinter* const old = find(present, printer.name);
    if (old == nullptr) {
      addPrinter(printer);
      change.added.push_back(printer.name);
    } else if (isAsPlanned(*old, printer)) {
      change.kept.push_back(printer.name);
    } else {
      changePrinter(printer);
      change.changed.push_back(printer.name);
    }
  }
  for (const SpoolerPrinter& printer : present) {
    if (printer.port != port || find(planned, printer.name) != nullptr) continue;
    deletePrinter(printer.name);
    change.removed.push_back(printer.name);
  }
  return change;
}

SessionChange takeDown(unsigned session) {
  const std::wstring port = sessionPort(session);
  SessionChange change;
  for (const SpoolerPrinter& printer : printersOn({port})) {
    deletePrinter(printer.name);
    change.removed.push_back(printer.name);
  }
  change.portRemoved = deletePort(port);
  return change;
}

std::wstring defaultPrinterOf(const SessionFacts& session) {
  for (const ClientPrinterFacts& printer : session.printers) {
    if (printer.isDefault) return printer.localName;
  }
  return {};
}

}  // namespace admin
