#include "admin/sessions/session_printers.h"

#include "admin/base/failure.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::toUtf8;

bool holds(const std::vector<std::wstring>& names, const std::wstring& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
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

// For a printer that the spooler refuses.
RefusedPrinter refusal(const SpoolerPrinter& printer, const SystemFailure& failure) {
  const bool isAboutName = failure.error() == ERROR_INVALID_PRINTER_NAME || failure.error() == ERROR_INVALID_NAME ||
                           failure.error() == ERROR_INVALID_PARAMETER;
  const std::string remedy = isAboutName ? "Give the printer another name at its client." : failure.remedy();
  return {printer.name, failure.what(),
          remedy.empty() ? "Correct that, or give the printer another name or driver at its client." : remedy};
}

void make(const SpoolerPrinter& printer, const SpoolerPrinter* present, SessionChange& change) {
  if (present == nullptr) {
    addPrinter(printer);
    change.added.push_back(printer.name);
  } else if (isAsPlanned(*present, printer)) {
    change.kept.push_back(printer.name);
  } else {
    changePrinter(printer);
    change.changed.push_back(printer.name);
  }
}

}  // namespace

bool SessionChange::isUp(const std::wstring& name) const {
  return holds(added, name) || holds(changed, name) || holds(kept, name);
}

PrinterPlan planPrinters(const protocol::ListedSession& session, const SessionOptions& options,
                         const ServerDrivers& drivers) {
  const std::wstring substitute = options.driver.empty() ? drivers.settings.fallback : options.driver;
  const std::wstring processor = options.processor.empty() ? L"winprint" : options.processor;
  PrinterPlan plan;
  for (const protocol::ListedPrinter& printer : session.printers) {
    const DriverChoice choice = chooseDriver(printer.driver(), substitute, drivers);
    if (choice.driver.empty()) {
      plan.refused.push_back({printer.localName,
                              fmt::format("printer {} {}", programs::quoted(printer.localName), choice.why),
                              kDriverRemedy});
    } else {
      plan.printers.push_back({printer.localName, sessionPort(static_cast<unsigned>(session.number)), choice.driver,
                               processor, fmt::format(L"Client printer: {}", printer.name())});
    }
  }
  return plan;
}

std::vector<std::wstring> missingHere(const protocol::ListedSession& session,
                                      const std::vector<SpoolerPrinter>& present) {
  std::vector<std::wstring> missing;
  for (const protocol::ListedPrinter& printer : session.printers) {
    if (find(present, printer.localName) == nullptr) missing.push_back(printer.localName);
  }
  return missing;
}

void makePrinters(const std::vector<SpoolerPrinter>& planned, const std::vector<SpoolerPrinter>& present,
                  SessionChange& change) {
  for (const SpoolerPrinter& printer : planned) {
    try {
      make(printer, find(present, printer.name), change);
    } catch (const SystemFailure& failure) {
      change.refused.push_back(refusal(printer, failure));
    }
  }
}

SessionChange bringUp(const protocol::ListedSession& session, const SessionOptions& options) {
  const PrinterPlan plan = planPrinters(session, options, ServerDrivers::ofThisMachine());
  const std::vector<SpoolerPrinter>& planned = plan.printers;
  const std::wstring port = sessionPort(static_cast<unsigned>(session.number));
  SessionChange change;
  change.refused = plan.refused;
  change.portAdded = addPort(port);
  const std::vector<SpoolerPrinter> present = localPrinters();
  makePrinters(planned, present, change);
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

std::wstring defaultPrinterOf(const protocol::ListedSession& session) {
  for (const protocol::ListedPrinter& printer : session.printers) {
    if (printer.isDefault) return printer.localName;
  }
  return {};
}

namespace {

using programs::oneLine;

std::string formatWord(protocol::DataFormat format) {
  const protocol::DataFormatNames* const names = protocol::namesOf(format);
  return names != nullptr ? std::string(names->word) : "unknown";
}

Json namesJson(const std::vector<std::wstring>& names) {
  Json list = Json::array();
  for (const std::wstring& name : names)
    list.push_back(textValue(name));
  return list;
}

}  // namespace

Json sessionJson(const protocol::ListedSession& session) {
  Json printers = Json::array();
  for (const protocol::ListedPrinter& printer : session.printers) {
    printers.push_back(
        {{"name", textValue(printer.localName)},
         {"clientName", textValue(printer.name())},
         {"driver", textValue(printer.driver())},
         {"format", formatWord(printer.format)},
         {"default", printer.isDefault},
         {"resolution", printer.resolution},
         {"comment", textValue(printer.texts[protocol::Printer::kCommentText].value_or(std::wstring()))}});
  }
  return {{"session", session.number},
          {"connected", session.isConnected},
          {"since", textValue(session.since)},
          {"printers", printers}};
}

void saySession(const protocol::ListedSession& session, Output& output) {
  output.line(fmt::format("session {}: print client {} since {}", session.number,
                          session.isConnected ? "connected" : "gone", programs::localTime(session.since)));
  for (const protocol::ListedPrinter& printer : session.printers) {
    output.line(fmt::format("  \"{}\", driver \"{}\", format {}{}", oneLine(printer.localName),
                            oneLine(printer.driver()), formatWord(printer.format),
                            printer.isDefault ? ", the client's default" : ""));
  }
}

Json changeJson(int session, const SessionChange& change) {
  Json refused = Json::array();
  for (const RefusedPrinter& printer : change.refused)
    refused.push_back(printer.why);
  return {{"session", session},
          {"portAdded", change.portAdded},
          {"portRemoved", change.portRemoved},
          {"added", namesJson(change.added)},
          {"changed", namesJson(change.changed)},
          {"kept", namesJson(change.kept)},
          {"removed", namesJson(change.removed)},
          {"refused", refused}};
}

void sayChange(int session, const SessionChange& change, Output& output) {
  const std::string port = fmt::format("port CPP{}", session);
  if (change.portAdded) output.line(fmt::format("{} was added", port));
  for (const std::wstring& name : change.added)
    output.line(fmt::format("printer \"{}\" was added", oneLine(name)));
  for (const std::wstring& name : change.changed)
    output.line(fmt::format("printer \"{}\" was changed", oneLine(name)));
  for (const std::wstring& name : change.kept)
    output.line(fmt::format("printer \"{}\" is already there", oneLine(name)));
  for (const std::wstring& name : change.removed)
    output.line(fmt::format("printer \"{}\" was removed", oneLine(name)));
  for (std::size_t i = 0; i < change.refused.size(); ++i) {
    output.line(change.refused[i].why);
    // Several printers may have the same remedy.
    const bool isLast = i + 1 == change.refused.size() || change.refused[i + 1].remedy != change.refused[i].remedy;
    if (isLast) output.line(fmt::format("  {}", change.refused[i].remedy));
  }
  if (change.portRemoved) output.line(fmt::format("{} was deleted", port));
}

}  // namespace admin
