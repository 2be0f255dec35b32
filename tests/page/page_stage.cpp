// What the browser's test plays on: aps, a print client with a page, and an IPP printer, and the port monitor's side of
// jobs. Reads one line of JSON after another, and answers each with one:
//
//   {"do": "start", "job": "a", "printer": "Desk", "title": "Letter", "copies": 2}
//   {"do": "write", "job": "a", "file": "letter.pdf", "from": 0, "bytes": 1000}, or "text" instead of the file
//   {"do": "end", "job": "a"}        the job's end has begun
//   {"do": "result", "job": "a"}     waits for it: the print client's answer, or 0 and why there is none
//   {"do": "allow", "what": "go"}    puts a file of that name into the folder of the printer's command
//   {"do": "printed"}                how many jobs have come out of the printer
//   {"do": "stop"}                   ends the print client
//
// The first line that it writes says where its programs have their private files. Ends with its input.
#include "corvane/base/text.h"
#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/paper/virtual_printer.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <signal.h>
#include <stdlib.h>
#include <string>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using tests::MonitorPeer;

constexpr int kSession = 5;
// Its jobs come out when the file "go" is in its folder; "runs-out" makes it say before that its paper is out.
constexpr const char* kPrinterCommand =
    "while [ -e command ] && [ ! -e go ]; do\n"
    "  if [ -e runs-out ] && [ ! -e runs-out-is-known ]; then touch runs-out-is-known; echo 'STATE: +media-needed' "
    ">&2; fi\n"
    "  sleep 0.05\ndone\n"
    "[ ! -e runs-out-is-known ] || echo 'STATE: -media-needed' >&2\nexit 0";

struct Job {
  explicit Job(int port) : peer(port) {}
  MonitorPeer peer;
  std::future<int> result;
};

class Stage {
 public:
  Stage() : m_printer(m_place, printerSettings()) {
    m_runtime = m_place.folder("runtime");
    fs::permissions(m_runtime, fs::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1);
    m_scene = std::make_unique<tests::Scene>(std::vector<std::string>{"--pace", "10"});
    std::vector<std::string> command = m_scene->clientCommand(
        kSession, {"Letters,format=pdf,default=yes", "Desk,uri=" + m_printer.uri(),
                   "Attic,uri=ipp://localhost:" + std::to_string(tests::PaperPlace::freePort()) + "/ipp/print"});
    command.insert(command.end(), {"--pace", "10"});
    m_client = std::make_unique<tests::ChildProcess>(command);
    m_client->waitForLine("ready: ");
  }

  json environment() const {
    return {{"runtime", m_runtime.string()},
            {"program", tests::Scene::program("printclient")},
            {"output", m_scene->output(kSession).string()}};
  }

  json act(const json& order) {
    const std::string what = order.at("do");
    if (what == "start") return startJob(order);
    if (what == "write") return write(order);
    if (what == "end") return end(*m_jobs.at(order.at("job")));
    if (what == "result") return result(*m_jobs.at(order.at("job")));
    if (what == "printed") return {{"count", m_printer.printed().size()}};
    if (what == "allow") {
      std::ofstream(m_printer.folder() / order.at("what").get<std::string>()) << "";
      return json::object();
    }
    if (what == "stop") {
      m_client.reset();
      return json::object();
    }
    throw std::runtime_error("nobody knows how to " + what);
  }

 private:
  static tests::VirtualPrinter::Settings printerSettings() {
    tests::VirtualPrinter::Settings settings;
    settings.then = kPrinterCommand;
    return settings;
  }

  json startJob(const json& order) {
    auto job = std::make_unique<Job>(m_scene->port());
    const std::wstring printer = corvane::fromUtf8(order.at("printer").get<std::string>());
    const std::wstring local = printer + L" (session " + std::to_wstring(kSession) + L")";
    if (!job->peer.attach(local)) throw std::runtime_error("the job cannot be attached");
    const std::wstring title = corvane::fromUtf8(order.at("title").get<std::string>());
    job->peer.startJob({local + L" - Job #" + std::to_wstring(++m_number), printer, title, L"RAW"}, {1, 1, 1, 1},
                       order.value("copies", 1));
    m_jobs[order.at("job")] = std::move(job);
    return json::object();
  }

  json write(const json& order) {
    std::string data = order.value("text", "");
    if (order.contains("file")) {
      std::ifstream file(order.at("file").get<std::string>(), std::ios::binary);
      file.seekg(order.value("from", 0));
      data.resize(order.at("bytes").get<std::size_t>());
      file.read(data.data(), static_cast<std::streamsize>(data.size()));
      data.resize(static_cast<std::size_t>(file.gcount()));
    }
    m_jobs.at(order.at("job"))->peer.writeJob(data);
    return {{"bytes", data.size()}};
  }

  static json end(Job& job) {
    job.result = std::async(std::launch::async, [&job] { return job.peer.endJob(); });
    return json::object();
  }
  static json result(Job& job) try { return {{"result", job.result.get()}}; } catch (const CS_Exception& failure) {
    return {{"result", 0}, {"why", corvane::toUtf8(failure.detail())}};
  }

  const tests::PaperPlace m_place;
  tests::VirtualPrinter m_printer;
  fs::path m_runtime;
  std::unique_ptr<tests::Scene> m_scene;
  std::unique_ptr<tests::ChildProcess> m_client;
  std::map<std::string, std::unique_ptr<Job>> m_jobs;
  int m_number = 0;
};

}  // namespace

int main() try {
  signal(SIGPIPE, SIG_IGN);
  CS_ComponentServer::initialize(0, 0);
  Stage stage;
  std::cout << stage.environment() << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    json answer;
    try {
      answer = stage.act(json::parse(line));
    } catch (const CS_Exception& failure) {
      answer = {{"failure", corvane::toUtf8(failure.detail())}};
    } catch (const std::exception& failure) {
      answer = {{"failure", failure.what()}};
    }
    std::cout << answer << std::endl;
  }
  return 0;
} catch (const std::exception& failure) {
  std::cerr << "page_stage: " << failure.what() << "\n";
  return 1;
}
