#include "tests/support/paper/print_scheduler.h"

#include <algorithm>
#include <fstream>
#include <signal.h>
#include <stdlib.h>

namespace tests {

PrintScheduler::PrintScheduler(const PaperPlace& place) : m_port(PaperPlace::freePort()) {
  m_folder = place.folder("scheduler-" + std::to_string(m_port));
  const std::filesystem::path& folder = m_folder;
  const std::string path = folder.string();
  std::ofstream(folder / "cupsd.conf") << "Listen " << address() << "\n"
                                       << "Browsing Off\nDefaultAuthType None\nLogLevel warn\nMaxLogSize 0\n"
                                          "WebInterface No\nJobRetryInterval 1\nPidFile "
                                       << path << "/pid\n"
                                       << "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
                                          "<Policy default>\n  JobPrivateAccess all\n  JobPrivateValues none\n"
                                          "  SubscriptionPrivateAccess all\n  SubscriptionPrivateValues none\n"
                                          "  <Limit All>\n    Order deny,allow\n  </Limit>\n</Policy>\n";
  std::ofstream files(folder / "cups-files.conf");
  files << "FileDevice Yes\n";
  for (const auto& [name, below] :
       {std::pair("ServerRoot", "root"), std::pair("CacheDir", "cache"), std::pair("StateDir", "state"),
        std::pair("RequestRoot", "jobs"), std::pair("TempDir", "tmp")}) {
    std::filesystem::create_directories(folder / below);
    files << name << " " << path << "/" << below << "\n";
  }
  std::filesystem::permissions(folder / "tmp", std::filesystem::perms(01777));  // of helpers that run as another user
  for (const auto& [name, below] :
       {std::pair("AccessLog", "access"), std::pair("ErrorLog", "log"), std::pair("PageLog", "pages")})
    files << name << " " << path << "/" << below << "\n";
  files.close();
  m_process = PaperPlace::start({"/usr/sbin/cupsd", "-f", "-c", path + "/cupsd.conf", "-s", path + "/cups-files.conf"});
  PaperPlace::waitForListener(m_port, *m_process);
  setenv("CUPS_SERVER", address().c_str(), 1);
}

PrintScheduler::~PrintScheduler() {
  // In order, so that its own helpers end as well.
  PaperPlace::end(*m_process, SIGTERM);
  setenv("CUPS_SERVER", "127.0.0.1:1", 1);
}

void PrintScheduler::addQueue(const std::string& name, const std::string& deviceUri,
                              const std::vector<std::string>& options) const {
  std::vector<std::string> command = {"/usr/sbin/lpadmin", "-p", name, "-E", "-v", deviceUri};
  const bool isDriverless = std::find(options.begin(), options.end(), "everywhere") != options.end();
  command.insert(command.end(), options.begin(), options.end());
  administer(command);
  // The driver is made on a thread of the scheduler's own, which then opens the queue.
  PaperPlace::waitUntil("the queue takes jobs", [&] {
    const bool hasDriver = !isDriverless || std::filesystem::exists(m_folder / "root" / "ppd" / (name + ".ppd"));
    return hasDriver && administer({"/usr/bin/lpstat", "-a"}).find(name + " accepting") != std::string::npos;
  });
}

std::string PrintScheduler::administer(std::vector<std::string> command) const {
  command.insert(command.begin() + 1, {"-h", address()});
  return PaperPlace::run(command);
}

}  // namespace tests
