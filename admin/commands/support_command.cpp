#include "admin/base/zip_file.h"
#include "admin/commands/invocation.h"
#include "admin/support/support_files.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace admin {
namespace {

struct SupportOptions {
  std::string file;
  int serverPort = 0;
};

// What another command of this program says.
std::string saidBy(std::vector<std::string> words, const SupportOptions& options) {
  if (options.serverPort != 0) words.insert(words.end(), {"--server-port", std::to_string(options.serverPort)});
  const auto parsed = parseCommandLine(std::move(words));
  std::ostringstream out;
  Output output(out, out, parsed->invocation.json);
  runInvocation(parsed->invocation, output);
  return out.str();
}

// Jobs and records have titles and users, comments of printers may have names; jobs and logs have files of their own.
std::string statusFile(const SupportOptions& options) {
  Json facts = Json::parse(saidBy({"status", "--json"}, options), nullptr, false);
  if (!facts.is_object()) return "This is not to be had.\n";
  for (const char* name : {"failedJobs", "printerJobs", "records"})
    facts.erase(name);
  if (facts.contains("server") && facts["server"].contains("sessions")) {
    for (Json& session : facts["server"]["sessions"]) {
      for (Json& printer : session["printers"])
        printer.erase("comment");
    }
  }
  return facts.dump(2) + "\n";
}

std::vector<SupportFile> collect(const SupportOptions& options) {
  Scrubber scrubber;
  scrubber.knowUsersHere();
  std::vector<SupportFile> files = collectSupportFiles(Places::ofThisMachine(), options.serverPort, scrubber);
  const auto add = [&](const char* name, const char* what, const std::string& content) {
    files.push_back({name, what, scrubber.text(content)});
  };
  add("doctor.txt", "What mgprintmon doctor says, without a test page.", saidBy({"doctor", "--no-page"}, options));
  add("doctor.json", "The same for programs.", saidBy({"doctor", "--no-page", "--json"}, options));
  add("status.json", "What mgprintmon status says, without jobs and records.", statusFile(options));
  SupportOptions everywhere = options;
  everywhere.serverPort = 0;  // which this command does not ask
  add("drivers.json", "The printer drivers, and which of them can be used.", saidBy({"drivers", "--json"}, everywhere));
  return files;
}

std::string listOf(const std::vector<SupportFile>& files) {
  std::string list;
  for (const SupportFile& file : files)
    list += fmt::format("{}, {} bytes: {}\r\n", file.name, file.content.size(), file.what);
  return list;
}

std::wstring freshName() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return fmt::format(L"mgprintmon-support-{:04}{:02}{:02}-{:02}{:02}{:02}.zip", now.wYear, now.wMonth, now.wDay,
                     now.wHour, now.wMinute, now.wSecond);
}

constexpr char kReadMe[] =
    "What mgprintmon support has collected for a developer. Names of users, titles of documents and keys are taken "
    "out, "
    "and stand as \"(left out)\"; names of printers, folders and this machine's domain are in it. Look through it "
    "before "
    "you give it away.\r\n\r\n";

ExitCode run(const SupportOptions& options, Output& output) {
  const std::wstring path = options.file.empty() ? freshName() : corvane::fromUtf8(options.file);
  ZipFile archive(path);
  const std::vector<SupportFile> files = collect(options);
  archive.add("README.txt", kReadMe + listOf(files));
  Json contents = Json::array();
  for (const SupportFile& file : files) {
    archive.add(file.name, file.content);
    output.line(fmt::format("  {}, {} bytes: {}", file.name, file.content.size(), file.what));
    contents.push_back({{"name", file.name}, {"bytes", file.content.size()}, {"what", file.what}});
  }
  archive.finish();
  output.line(fmt::format("{} is written; look through it before you give it away", programs::quoted(path)));
  output.facts({{"file", textValue(path)}, {"contents", contents}});
  return ExitCode::kDone;
}

}  // namespace

void addSupportCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<SupportOptions>();
  CLI::App& command = addCommand(app, invocation, "support",
                                 "Writes one archive with what a developer needs to look into a fault: the doctor's "
                                 "findings, states, settings and "
                                 "the ends of the logs, without titles of documents, names of users and keys.",
                                 {"support", "support C:\\fault.zip", "support --json"});
  command.add_option("file", options->file, "the archive, which must not be there yet; default: a name with the time");
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
