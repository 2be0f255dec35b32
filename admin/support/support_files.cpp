#include "admin/support/support_files.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/output.h"
#include "admin/base/registry_value.h"
#include "admin/base/service.h"
#include "admin/doctor/checks.h"
#include "admin/doctor/windows_policies.h"
#include "admin/sessions/application_server.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/host_properties.h"
#include "programs/text.h"
#include "protocol/version_text.h"

#include <fmt/format.h>
#include <functional>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::toUtf8;

constexpr unsigned kLogBytes = 256 * 1024;  // of each log
constexpr int kMostJobs = 200;

// What the call gives, or why it gives nothing.
std::string had(const std::function<std::string()>& call) {
  try {
    return call();
  } catch (const Failure& failure) {
    return fmt::format("This is not to be had: {}\r\n{}\r\n", failure.what(), failure.remedy());
  } catch (const CS_Exception& failure) {
    return fmt::format("This is not to be had: {}\r\n", programs::describe(failure));
  }
}

std::string written(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string versions(const Places& places) {
  std::string text = fmt::format("{}, which wrote this\r\n", protocol::versionLine("mgprintmon"));
  for (const std::wstring& file : {places.module(), places.converter(), places.serverProgram(), places.toolProgram()}) {
    const auto version = fileVersion(file);
    text += fmt::format("{}: {}\r\n", toUtf8(file), version ? version->text() : "no version, or not there");
  }
  return text;
}

std::string windows() {
  constexpr wchar_t kKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  std::string text;
  for (const wchar_t* name :
       {L"ProductName", L"InstallationType", L"DisplayVersion", L"ReleaseId", L"CurrentBuild", L"UBR"}) {
    const auto value = readValue(kKey, name);
    if (!value) continue;
    const auto number = value->number();
    text += fmt::format("{}: {}\r\n", toUtf8(name),
                        number ? std::to_string(*number) : toUtf8(value->text().value_or(std::wstring())));
  }
  return text;
}

std::string valueText(const RegistryValue& value) {
  if (const auto text = value.text()) return programs::quoted(*text);
  if (const auto number = value.number()) return std::to_string(*number);
  std::string all;
  for (const std::wstring& text : value.texts())
    all += fmt::format("{}{}", all.empty() ? "" : ", ", programs::quoted(text));
  return value.type == REG_MULTI_SZ ? all : fmt::format("{} bytes of the type {}", value.data.size(), value.type);
}

std::string registry(const std::wstring& key) {
  std::string text = fmt::format("[HKEY_LOCAL_MACHINE\\{}]\r\n", toUtf8(key));
  for (const std::wstring& name : valueNames(key)) {
    if (const auto value = readValue(key, name))
      text += fmt::format("{} = {}\r\n", programs::quoted(name), valueText(*value));
  }
  for (const std::wstring& name : subkeys(key))
    text += registry(key + L"\\" + name);
  return text;
}

std::string ports() {
  std::string text;
  for (const std::wstring& port : monitorPorts())
    text += toUtf8(port) + "\r\n";
  return text.empty() ? "The monitor has no ports.\r\n" : text;
}

std::string printers() {
  Json all = Json::array();
  for (const SpoolerPrinter& printer : localPrinters()) {
    all.push_back({{"name", textValue(printer.name)},
                   {"port", textValue(printer.port)},
                   {"driver", textValue(printer.driver)},
                   {"processor", textValue(printer.processor)},
                   {"deleted", printer.isGoing},
                   {"paused", printer.isPaused},
                   {"offline", printer.isOffline}});
  }
  return written(all);
}

// An account that is no person's.
std::string accountText(const std::wstring& account) {
  const bool isOfSystem =
      account == L"LocalSystem" || account.starts_with(L"NT SERVICE\\") || account.starts_with(L"NT AUTHORITY\\");
  return isOfSystem ? toUtf8(account) : "another account";
}

std::string services(const Places& places) {
  Json all = Json::array();
  for (const std::wstring& name : {places.serverService, places.watchService, std::wstring(kSpoolerService)}) {
    const auto facts = serviceFacts(name);
    if (!facts) continue;
    all.push_back({{"name", textValue(name)},
                   {"state", stateText(*facts)},
                   {"starts", facts->isDisabled     ? "never"
                              : facts->startsItself ? "with the machine"
                                                    : "when it is asked for"},
                   {"account", accountText(facts->account)},
                   {"command", textValue(facts->commandLine)}});
  }
  return written(all);
}

// Without titles and users. Causes are in the words of printers and converters, which may have titles in them.
std::string jobs(ApplicationServer& server, Scrubber& scrubber) {
  Json all = Json::array();
  protocol::Jobs wanted;
  wanted.most = kMostJobs;
  for (const protocol::JobRecord& job : server.jobs(wanted).jobs) {
    scrubber.know(job.user);
    scrubber.know(job.document);
    all.push_back({{"number", job.number},
                   {"state", textValue(protocol::wordOf(job.state))},
                   {"session", job.session},
                   {"printer", textValue(job.printer)},
                   {"spoolerJob", textValue(job.spoolerJob)},
                   {"process", job.process},
                   {"copies", job.copies},
                   {"pages", job.pages},
                   {"bytes", job.bytes},
                   {"began", textValue(job.began)},
                   {"ended", textValue(job.ended)},
                   {"milliseconds", job.milliseconds},
                   {"cause", scrubber.logLine(toUtf8(job.cause))},
                   {"remedy", scrubber.logLine(toUtf8(job.remedy))}});
  }
  return written(all);
}

// The notices tell of users and titles, too.
void knowNotices(ApplicationServer& server, Scrubber& scrubber) {
  for (const protocol::Notice& notice : server.notices(0, 0).notices) {
    for (const auto& [name, value] : notice.values) {
      if (name == L"user" || name == L"document") scrubber.know(value);
    }
  }
}

std::string logEnd(const std::wstring& file, const Scrubber& scrubber) {
  if (file.empty()) return "There is none.\r\n";
  std::string log = fileTail(file, kLogBytes);
  // The first line is whole only when the log is short.
  if (log.size() == kLogBytes) log.erase(0, std::min(log.find('\n'), log.size() - 1) + 1);
  return scrubber.log(log);
}

}  // namespace

std::vector<SupportFile> collectSupportFiles(const Places& places, int serverPort, Scrubber& scrubber) {
  std::vector<SupportFile> files;
  // First, because it tells names that all others must not have.
  const std::string story = had([&] {
    ApplicationServer server(serverPort);
    std::string text = jobs(server, scrubber);
    knowNotices(server, scrubber);
    return text;
  });
  const auto add = [&](const char* name, const char* what, const std::function<std::string()>& call) {
    files.push_back({name, what, scrubber.text(had(call))});
  };
  add("jobs.json", "The latest jobs that aps knows, without titles and users.", [&] { return story; });
  add("versions.txt", "The versions of the installed programs.", [&] { return versions(places); });
  add("windows.txt", "Which Windows this is.", windows);
  add("policies.json", "Settings and policies of Windows about printing that are set here.",
      [&] { return written(settingsJson(windowsSettings(policyContext(places)))); });
  add("registry.txt", "The registry values of this installation.", [&] { return registry(places.vendorKey); });
  add("ports.txt", "The monitor's ports.", ports);
  add("printers.json", "The printers of this machine, with their ports and drivers.", printers);
  add("services.json", "The services aps, mgprintmon and Spooler.", [&] { return services(places); });
  const std::pair<const char*, std::wstring> logs[] = {
      {"logs/MgPrintMon.log", HostProperties::getInstance().logFile()},
      {"logs/aps.log", places.serviceLogFolder() + L"\\aps.log"},
      {"logs/mgprintmon.log", places.serviceLogFolder() + L"\\mgprintmon.log"}};
  for (const auto& [name, file] : logs) {
    add(name, "The end of a log, without what stands in quotation marks and without lines that tell of documents.",
        [&, path = file] { return logEnd(path, scrubber); });
  }
  return files;
}

}  // namespace admin
