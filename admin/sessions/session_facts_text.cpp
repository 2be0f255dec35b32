#include "admin/sessions/session_facts_text.h"

#include "programs/text.h"

#include <nlohmann/json.hpp>

namespace admin {
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

Json sessionJson(const SessionFacts& session) {
  Json printers = Json::array();
  for (const ClientPrinterFacts& printer : session.printers) {
    printers.push_back({{"name", textValue(printer.localName)},
                        {"clientName", textValue(printer.name())},
                        {"driver", textValue(printer.driver())},
                        {"format", formatWord(printer.format)},
                        {"default", printer.isDefault}});
  }
  return {{"session", session.number},
          {"connected", session.isConnected},
          {"since", textValue(session.since)},
          {"printers", printers}};
}

void saySession(const SessionFacts& session, Output& output) {
  output.line("session " + std::to_string(session.number) + ": print client " +
              (session.isConnected ? "connected" : "gone") + " since " + programs::localTime(session.since));
  for (const ClientPrinterFacts& printer : session.printers) {
    output.line("  \"" + oneLine(printer.localName) + "\", driver \"" + oneLine(printer.driver()) + "\", format " +
                formatWord(printer.format) + (printer.isDefault ? ", the client's default" : ""));
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
  const std::string port = "port CPP" + std::to_string(session);
  if (change.portAdded) output.line(port + " was added");
  for (const std::wstring& name : change.added)
    output.line("printer \"" + oneLine(name) + "\" was added");
  for (const std::wstring& name : change.changed)
    output.line("printer \"" + oneLine(name) + "\" was changed");
  for (const std::wstring& name : change.kept)
    output.line("printer \"" + oneLine(name) + "\" is already there");
  for (const std::wstring& name : change.removed)
    output.line("printer \"" + oneLine(name) + "\" was removed");
  for (std::size_t i = 0; i < change.refused.size(); ++i) {
    output.line(change.refused[i].why);
    // Several may have the same one.
    const bool isLast = i + 1 == change.refused.size() || change.refused[i + 1].remedy != change.refused[i].remedy;
    if (isLast) output.line("  " + change.refused[i].remedy);
  }
  if (change.portRemoved) output.line(port + " was deleted");
}

}  // namespace admin
