// Plays sequences of frames to a print client's request handler: jobs begin, get data and end in any order, several at
// a time, and the connection may go in the middle. As many files as positive answers are there, nothing else is left
// behind, and nothing holds a connection that has ended.
//
// The first byte prepares: bit 0 makes two jobs' components, 1 and 3, on peer 0; bit 1 begins a job on each. The script
// follows. The components stand on the connection itself, not on a bridge: they need no threads there.

#include "client/print_client.h"
#include "client/sinks/folder/folder_sink.h"
#include "corvane/components/component_server.h"
#include "corvane/records/program_monitor.h"
#include "corvane/wire/value_writer.h"
#include "protocol/names.h"
#include "tests/fuzz/fresh_class.h"
#include "tests/fuzz/scratch_folder.h"
#include "tests/fuzz/served_peer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::shared_ptr<printclient::JobOutput> g_output;

class Quiet : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

const fs::path& folder() {
  static const fuzz::ScratchFolder own;
  return own.path();
}

bool prepareProcess() {
  corvane::LocalMonitor::instance().setSink(std::make_unique<Quiet>());
  if (!CS_ComponentServer::initialize(0, 0)) std::abort();
  static printclient::Reporter reporter(std::fopen("/dev/null", "w"), true);
  g_output = std::make_shared<printclient::JobOutput>(folder(), 5, 1234, reporter,
                                                      std::make_shared<printclient::FolderSink>());
  CS_ComponentServer::getServer()->registerClass(protocol::kPrintClientClass,
                                                 new fuzz::FreshClass<printclient::PrintClient>(g_output));
  return CS_ComponentServer::getServer()->offerClass(protocol::kPrintClientClass);
}

void addStep(std::vector<unsigned char>& bytes, corvane::FrameKind kind, unsigned char number, unsigned char component,
             const corvane::ValueWriter& values) {
  const auto size = static_cast<unsigned>(values.size());
  bytes.insert(bytes.end(), {0, static_cast<unsigned char>(kind), 0, number, 0, component, 0,
                             static_cast<unsigned char>(size), static_cast<unsigned char>(size >> 8)});
  values.forEachPiece([&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
}

const std::vector<unsigned char>& opening(unsigned choice) {
  static const std::array<std::vector<unsigned char>, 4> all = [] {
    corvane::ValueWriter name, start;
    name.writeText(protocol::kPrintClientClass);
    for (const wchar_t* text : {L"job", L"Laser", L"Report", L"RAW"}) {
      start.writeBoolean(true);
      start.writeText(text);
    }
    for (const int number : {1, 1, 1, 1, 1})
      start.writeInt(number);
    std::array<std::vector<unsigned char>, 4> openings;
    for (unsigned i = 0; i < openings.size(); ++i) {
      for (const unsigned char component : {std::uint8_t{1}, std::uint8_t{3}}) {
        if ((i & 1) != 0) addStep(openings[i], corvane::FrameKind::kCreate, 0, component, name);
        if ((i & 2) != 0) addStep(openings[i], corvane::FrameKind::kRequest, 1, component, start);
      }
    }
    return openings;
  }();
  return all[choice];
}

// Removes what the input left, and returns how many files it was; a temporary one ends the process.
int takeFiles() {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder()))
    files.push_back(entry.path());
  for (const fs::path& file : files) {
    if (file.filename().string().starts_with(".")) std::abort();
    fs::remove(file);
  }
  return static_cast<int>(files.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = prepareProcess();
  if (!prepared || size == 0) return 0;
  int printed = 0;
  {
    fuzz::ServedPeer peer;
    const std::array<fuzz::ServedPeer*, 1> peers{&peer};
    fuzz::FrameScript before(opening(data[0] % 4));
    fuzz::play(before, peers);
    fuzz::FrameScript script(std::span(data + 1, size - 1));
    fuzz::play(script, peers);
    printed = peer.positiveReplies();
  }
  // A job whose end wanted no answer is printed, too.
  if (takeFiles() < printed) std::abort();
  return 0;
}
