// The raw yardstick of the benchmarks: what a job's bytes and round trips cost on plain sockets, on the same hops,
// which are processes as in the product. Linux only.
//
//   raw_hops sink FOLDER [COMMAND...]     writes each stream to a file in the folder
//   raw_hops relay SINK-PORT              passes on what comes, in either direction
//
// Each prints "raw_hops listens on PORT". bench/raw_peer.h says how a connection begins. A stream ends as a job's does:
// its file is synchronised, gets its final name, and the folder is synchronised. The command is the one of the command
// line; nobody who connects can ask for another.

#include "bench/raw_peer.h"
#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using bench::receiveAll;
using bench::sendAll;
using corvane::Socket;

constexpr std::size_t kBuffer = 256 * 1024;

void pump(Socket& from, Socket& to) {
  std::vector<unsigned char> buffer(kBuffer);
  try {
    while (const std::size_t got = *from.receive(buffer, std::nullopt))
      sendAll(to, std::span(buffer).first(got));
  } catch (const CS_Exception&) {
  }
  to.shutdown();
}

// The relay's one connection to the sink for round trips, as aps has one to a print client.
class SinkPings {
 public:
  explicit SinkPings(std::uint16_t sink) : m_sink(sink) {}

  void ask() {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_pings) m_pings.emplace(m_sink);
    m_pings->ask(bench::kBySink);
  }

 private:
  const std::uint16_t m_sink;
  std::mutex m_lock;
  std::optional<bench::RawPings> m_pings;
};

void answerPings(Socket& socket, SinkPings* sink) {
  for (bench::Ping ping;;) {
    receiveAll(socket, ping);
    if (sink != nullptr && ping[0] == bench::kBySink) sink->ask();
    sendAll(socket, ping);
  }
}

void relay(Socket in, std::uint16_t sinkPort, SinkPings& pings) try {
  unsigned char wanted = 0;
  receiveAll(in, {&wanted, 1});
  if (wanted == bench::kPings) return answerPings(in, &pings);
  Socket out = Socket::connect("localhost", sinkPort, false);
  sendAll(out, {&wanted, 1});
  std::thread back([&] { pump(out, in); });
  pump(in, out);
  back.join();
} catch (const CS_Exception&) {
  // The sender has gone.
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(int file, std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const ssize_t taken = write(file, bytes.data(), bytes.size());
    if (taken < 0) fail("the sink cannot write");
    bytes = bytes.subspan(static_cast<std::size_t>(taken));
  }
}

void syncFolder(const std::string& folder) {
  const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0 || fsync(handle) != 0) fail("the sink's folder cannot be synchronised");
  close(handle);
}

void takeStream(Socket& socket, const std::string& folder) {
  static std::atomic<int> last{0};
  unsigned char size[8];
  receiveAll(socket, size);
  std::uint64_t left = corvane::loadLittleEndian32(size) | std::uint64_t{corvane::loadLittleEndian32(size + 4)} << 32;
  const std::string path = folder + "/raw-" + std::to_string(++last);
  const std::string temporary = path + ".part";
  const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) fail("the sink cannot make its file");
  std::vector<unsigned char> buffer(kBuffer);
  while (left > 0) {
    const std::size_t got = *socket.receive(buffer, std::nullopt);
    if (got == 0) return;
    writeAll(file, std::span(buffer).first(got));
    left -= got;
  }
  if (fsync(file) != 0 || rename(temporary.c_str(), path.c_str()) != 0) fail("the sink's file is not on the disk");
  syncFolder(folder);
  close(file);  // behind the answer it would free a file that was removed meanwhile, in the product's turn
  const unsigned char done[] = {1};
  sendAll(socket, done);
}

void runCommand(Socket& socket, char** command) {
  pid_t child = -1;
  int status = -1;
  if (posix_spawnp(&child, command[0], nullptr, nullptr, command, environ) == 0) waitpid(child, &status, 0);
  const unsigned char done[] = {static_cast<unsigned char>(status == 0 ? 1 : 0)};
  sendAll(socket, done);
}

void sink(Socket socket, const std::string& folder, char** command) try {
  unsigned char wanted = 0;
  receiveAll(socket, {&wanted, 1});
  if (wanted == bench::kStream) return takeStream(socket, folder);
  if (wanted == bench::kCommand && *command != nullptr) return runCommand(socket, command);
  answerPings(socket, nullptr);
} catch (const CS_Exception&) {
  // The sender has gone.
} catch (const std::exception& failure) {
  std::fprintf(stderr, "raw_hops: %s\n", failure.what());
}

template <class Serve>
void listen(Serve serve) {
  corvane::Listener listener("127.0.0.1:0");
  std::printf("raw_hops listens on %d\n", static_cast<int>(listener.port()));
  std::fflush(stdout);
  while (auto socket = listener.accept())
    std::thread([serve](Socket taken) { serve(std::move(taken)); }, std::move(*socket)).detach();
}

}  // namespace

int main(int count, char** arguments) {
  corvane::initializeNetwork();
  std::signal(SIGTERM, [](int) { _exit(0); });
  const std::string role = count > 2 ? arguments[1] : "";
  if (role == "sink") {
    listen([folder = std::string(arguments[2]), command = arguments + 3](Socket socket) {
      sink(std::move(socket), folder, command);
    });
  } else if (role == "relay") {
    const auto sinkPort = static_cast<std::uint16_t>(std::atoi(arguments[2]));
    SinkPings pings(sinkPort);
    listen([&pings, sinkPort](Socket socket) { relay(std::move(socket), sinkPort, pings); });
  } else {
    std::fprintf(stderr, "usage: raw_hops sink FOLDER [COMMAND...] | raw_hops relay SINK-PORT\n");
    return 2;
  }
}
