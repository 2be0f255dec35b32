#include "tests/processes/job_desk.h"

#include "tests/processes/keys.h"
#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <map>

namespace tests {
namespace {

constexpr int kFirstSession = 11, kLastSession = 18;

class FolderDesk : public JobDesk {
 public:
  std::vector<std::string> serverOptions() const override { return {}; }
  std::filesystem::path monitorKey() const override { return {}; }
  std::vector<std::string> clientCommand(const Scene& scene, int session) const override {
    return scene.clientCommand(session, {"Raw,format=raw", "Pdf,format=pdf"});
  }
  std::string lastCall() const override { return "fsync"; }
  std::vector<Document> documents(const Scene& scene, int session) const override {
    std::vector<Document> found;
    for (const std::string& name : scene.files(session)) {
      if (!name.starts_with(".")) found.push_back({name, scene.content(session, name)});
    }
    return found;
  }
  void settle() override {}
  ChildProcess* printer(int) const override { return nullptr; }
  void restartPrinter(int) override {}
};

class PaperDesk : public JobDesk {
 public:
  PaperDesk() : m_address("127.0.0.1:" + std::to_string(PaperPlace::freePort())) {
    m_keys.make("monitor");
    for (int session = kFirstSession; session <= kLastSession; ++session) {
      m_keys.make("session-" + std::to_string(session));
      m_printers[session] = std::make_unique<VirtualPrinter>(m_place, settings());
    }
  }

  std::vector<std::string> serverOptions() const override {
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", m_address});
    return options;
  }
  std::filesystem::path monitorKey() const override { return m_keys.path("monitor"); }

  std::vector<std::string> clientCommand(const Scene& scene, int session) const override {
    const std::string number = std::to_string(session);
    const std::string uri = m_printers.at(session)->uri();
    return {Scene::program("printclient"),
            "--server",
            m_address,
            "--tls",
            "--session",
            number,
            "--key",
            m_keys.path("session-" + number),
            "--output",
            scene.output(session).string(),
            "--printer",
            "Raw,format=raw,uri=" + uri,
            "--printer",
            "Pdf,format=pdf,uri=" + uri};
  }
  std::string lastCall() const override { return "print"; }

  std::vector<Document> documents(const Scene&, int session) const override {
    const VirtualPrinter& printer = *m_printers.at(session);
    std::vector<Document> found;
    for (const std::string& content : printer.printed()) {
      const std::string name = printer.said(found.size(), "IPP_JOB_NAME");
      found.push_back({name + (content.starts_with("%PDF") ? ".pdf" : ".prn"), content});
    }
    std::erase_if(found, [](const Document& document) { return document.name.starts_with(kControl); });
    return found;
  }

  // A job comes out when all before it have; while there is one the printer takes no other.
  void settle() override {
    for (const auto& printer : m_printers) {
      PaperPlace::waitUntil("a control page", [&] { return printControl(*printer.second); });
      const std::size_t count = ++m_controls[printer.first];
      PaperPlace::waitUntil("a control page", [&] { return controls(*printer.second) == count; });
    }
  }
  ChildProcess* printer(int session) const override { return &m_printers.at(session)->process(); }
  void restartPrinter(int session) override {
    m_printers.at(session)->switchOff();
    m_printers.at(session)->switchOn();
  }

 private:
  static constexpr char kControl[] = "Control";

  // Takes data of no known kind, too, as they are.
  static VirtualPrinter::Settings settings() {
    VirtualPrinter::Settings settings;
    settings.formats = "application/pdf,application/postscript,application/vnd.cups-raw";
    return settings;
  }
  bool printControl(const VirtualPrinter& printer) const {
    ChildProcess tool({"/usr/bin/ipptool", "-t", "-f", m_page, printer.uri(), m_request});
    return tool.wait() == 0;
  }
  static std::size_t controls(const VirtualPrinter& printer) {
    std::size_t count = 0;
    for (std::size_t job = 0; job < printer.printed().size(); ++job)
      count += printer.said(job, "IPP_JOB_NAME") == kControl ? 1 : 0;
    return count;
  }

  const PaperPlace m_place;
  const Keys m_keys;
  const std::string m_address;
  std::map<int, std::unique_ptr<VirtualPrinter>> m_printers;
  std::map<int, std::size_t> m_controls;
  const std::string m_page = write("page.ps", "%!PS-Adobe-3.0\nshowpage\n");
  const std::string m_request = write("print.test",
                                      "{ NAME \"Control\" OPERATION Print-Job GROUP operation-attributes-tag\n"
                                      "ATTR charset attributes-charset utf-8\n"
                                      "ATTR naturalLanguage attributes-natural-language en\n"
                                      "ATTR uri printer-uri $uri\n"
                                      "ATTR name job-name Control\n"
                                      "ATTR mimeMediaType document-format application/postscript\n"
                                      "FILE $filename STATUS successful-ok }\n");

  std::string write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = m_place.folder() / name;
    std::ofstream(path) << text;
    return path.string();
  }
};

}  // namespace

std::unique_ptr<JobDesk> makeFolderDesk() {
  return std::make_unique<FolderDesk>();
}

std::unique_ptr<JobDesk> makePaperDesk() {
  return std::make_unique<PaperDesk>();
}

}  // namespace tests
