#include "tests/support/paper/paper_place.h"

#include <arpa/inet.h>
#include <chrono>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tests {

namespace fs = std::filesystem;

namespace {

constexpr char kBusSettings[] = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=FOLDER/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/><allow eavesdrop="false"/></policy>
</busconfig>
)";

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

bool isListening(int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  const bool connected = connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(socket);
  return connected;
}

}  // namespace

PaperPlace::PaperPlace() {
  std::string pattern = (fs::temp_directory_path() / "mg_paper_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
  m_folder = pattern;
  // The scheduler's helpers run as another user and must get to their own folders.
  fs::permissions(m_folder, fs::perms(0755));
  std::string settings = kBusSettings;
  settings.replace(settings.find("FOLDER"), 6, pattern);
  std::ofstream(m_folder / "bus.conf") << settings;
  m_bus = start({"/usr/bin/dbus-daemon", "--config-file=" + pattern + "/bus.conf", "--nofork", "--nopidfile",
                 "--print-address=1"});
  m_bus->waitForLine("unix:path=");
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + pattern + "/bus").c_str(), 1);
  setenv("HOME", pattern.c_str(), 1);
  setenv("CUPS_SERVER", "127.0.0.1:1", 1);  // nobody's, until a scheduler says its own
}

PaperPlace::~PaperPlace() {
  end(*m_bus, SIGTERM);
  std::error_code ignored;
  fs::remove_all(m_folder, ignored);
}

fs::path PaperPlace::folder(const std::string& name) const {
  fs::create_directories(m_folder / name);
  return m_folder / name;
}

std::unique_ptr<ChildProcess> PaperPlace::start(std::vector<std::string> command) {
  command.insert(command.begin(), {"setpriv", "--pdeathsig", "KILL"});
  return std::make_unique<ChildProcess>(command);
}

void PaperPlace::end(ChildProcess& program, int signal) {
  program.signal(SIGCONT);
  program.signal(signal);
  program.wait();
}

std::string PaperPlace::run(const std::vector<std::string>& command) {
  ChildProcess program(command);
  if (program.wait() != 0) throw std::runtime_error(command[0] + ": " + program.output());
  return program.output();
}

int PaperPlace::freePort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  const bool bound = bind(socket, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                     getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  close(socket);
  if (!bound) throw std::runtime_error("no free port");
  return ntohs(address.sin_port);
}

void PaperPlace::waitForListener(int port, ChildProcess& program) {
  waitUntil("listens on port " + std::to_string(port), [&] {
    // A program that has ended can still be asked for its output.
    if (kill(program.id(), 0) != 0) throw std::runtime_error("ended: " + program.output());
    return isListening(port);
  });
}

void PaperPlace::waitUntil(const std::string& what, const std::function<bool()>& isTrue) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!isTrue()) {
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("never: " + what);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string PaperPlace::read(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace tests
