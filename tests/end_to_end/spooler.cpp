#include "tests/end_to_end/spooler.h"

namespace tests {

namespace fs = std::filesystem;

Spooler& Spooler::get() {
  static Spooler spooler;
  return spooler;
}

Spooler::Spooler() : m_prefix("wine-end-to-end") {
  install();
}

void Spooler::install() {
  const std::string mgspool = windowsProgram("mgspool.exe");
  m_prefix.run(mgspool, {"setup", "--ppd", windowsPathOfPpd()});
  for (const char* session : {"5", "6", "7", "8"}) {
    const std::string port = std::string("CPP") + session;
    m_prefix.run(mgspool, {"add-port", port});
    for (const char* printer : {"Laser-2", "Ink"})
      m_prefix.run(mgspool, {"add-printer", std::string(printer) + " (session " + session + ")", port});
  }
  m_prefix.run(mgspool, {"add-printer", "Ghost (session 5)", "CPP5"});
  m_prefix.run(mgspool, {"add-printer", "desk (session 5)", "CPP5"});
  m_prefix.run(mgspool, {"add-printer", "Preview PDF (session 5)", "CPP5"});
}

void Spooler::configure(int serverPort, const fs::path& root, const fs::path& log, const fs::path& keyFile) {
  // That of an earlier test is taken away by an empty one.
  m_prefix.run(windowsProgram("mgspool.exe"),
               {"settings", "--server-port", std::to_string(serverPort), "--root", windowsPath(root), "--log",
                windowsPath(log), "--key-file", keyFile.empty() ? "" : windowsPath(keyFile)});
}

std::unique_ptr<ChildProcess> Spooler::print(const std::string& printer, const fs::path& file,
                                             const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {"print", printer, windowsPath(file)};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return std::make_unique<ChildProcess>(WinePrefix::command(windowsProgram("mgspool.exe"), arguments));
}

std::unique_ptr<ChildProcess> Spooler::draw(const std::string& printer, const std::string& title,
                                            const std::vector<std::string>& pages,
                                            const std::vector<std::string>& options) {
  std::vector<std::string> arguments = {printer, title};
  arguments.insert(arguments.end(), pages.begin(), pages.end());
  arguments.insert(arguments.end(), options.begin(), options.end());
  return std::make_unique<ChildProcess>(WinePrefix::command(windowsProgram("gdi_page.exe"), arguments));
}

std::vector<std::string> Spooler::leftovers() const {
  std::vector<fs::path> folders = WineServer::temporaryFolders(m_prefix.path());
  folders.push_back(m_prefix.path() / "drive_c/mgtestproc");
  folders.push_back(m_prefix.path() / "drive_c/windows/system32/spool/printers");
  std::vector<std::string> names;
  for (const fs::path& folder : folders) {
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::directory_iterator(folder))
      names.push_back(entry.path().string());
  }
  return names;
}

}  // namespace tests
