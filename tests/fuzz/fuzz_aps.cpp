// Plays sequences of frames to the application server's request handlers: a session's print client, a port monitor and
// an administration tool in any order, on two connections. What is answered is frames, no session stays connected when
// its connection has ended, and nothing holds a connection that has ended.
//
// The first byte prepares: bit 0 makes the components of the port monitor and the administration tool on peer 0, bit 1
// the registration on peer 1 with session 5 and its printer "Laser". The script follows.

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/component_server.h"
#include "corvane/records/program_monitor.h"
#include "corvane/wire/value_writer.h"
#include "protocol/names.h"
#include "protocol/session.h"
#include "server/application.h"
#include "tests/fuzz/fresh_class.h"
#include "tests/fuzz/scratch_folder.h"
#include "tests/fuzz/served_peer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

constexpr wchar_t kRecordsClass[] = L"Quillfern::ComponentServer::ProgramMonitor_s";

std::shared_ptr<aps::Application> g_application;
// What the components of a class share of it.
template <class Component>
std::shared_ptr<typename Component::Context> g_context;

class Quiet : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

template <class Component>
void share() {
  g_context<Component> = g_application ? aps::Application::contextOf<Component>(g_application) : nullptr;
}

// Null lets the last one go.
void useApplication(std::shared_ptr<aps::Application> application) {
  g_application = std::move(application);
  share<aps::PortMonitorClient>();
  share<aps::SessionHost>();
  share<aps::ProgramMonitorServer>();
  share<aps::AdministrationServer>();
}

template <class Component>
void offer(const wchar_t* name) {
  CS_ComponentServer::getServer()->registerClass(name, new fuzz::FreshClass<Component>(g_context<Component>));
  CS_ComponentServer::getServer()->offerClass(name);
}

bool prepareProcess() {
  corvane::LocalMonitor::instance().setSink(std::make_unique<Quiet>());
  if (!CS_ComponentServer::initialize(0, 0)) std::abort();
  offer<aps::PortMonitorClient>(protocol::kPortMonitorClientClass);
  offer<aps::SessionHost>(protocol::kSessionHostClass);
  offer<aps::ProgramMonitorServer>(kRecordsClass);
  offer<aps::AdministrationServer>(protocol::kAdministrationServerClass);
  CS_ComponentServer::getServer()->offerClass(CS_Bridge::m_className);
  return CS_ComponentServer::getServer()->offerClass(CS_BridgeRouter::getClassName());
}

std::shared_ptr<aps::Application> makeApplication() {
  static const fuzz::ScratchFolder folder;
  // The threads of a log cost more than what most inputs have done, so that some inputs share one; few of them, because
  // what it keeps goes out in single replies.
  constexpr int kInputsOfLog = 8;
  static std::shared_ptr<aps::Log> log;
  static int inputs = 0;
  if (inputs++ % kInputsOfLog == 0) log = std::make_shared<aps::Log>(folder.path() / "aps.log");
  aps::SessionTable::Limits limits;
  limits.sessions = 3;
  limits.printers = 4;
  limits.clientWait = std::chrono::milliseconds(0);
  aps::Launcher::Settings launching;
  launching.programs.clear();
  auto application = std::make_shared<aps::Application>(log, limits, launching);
  application->longestNoticeWait = std::chrono::milliseconds(0);
  return application;
}

// A script of prepared frames, written as the bytes of one.
class Opening {
 public:
  void create(unsigned char peer, unsigned char component, const wchar_t* name) {
    corvane::ValueWriter values;
    values.writeText(name);
    add(peer, corvane::FrameKind::kCreate, 0, component, values);
  }

  void registration() {
    corvane::ValueWriter values;
    values.writeInt(5);
    values.writeInt(1);
    values.writeBoolean(true);
    values.writeText(L"Laser");
    for (std::size_t i = 1; i < protocol::Printer::kTexts; ++i)
      values.writeBoolean(false);
    values.writeBoolean(true);
    values.writeInt(3);
    values.writeInt(600);
    values.writeInt(1);
    values.writeText(protocol::kPrintClientClass);
    for (const int part : {4, 0, 1, 0})
      values.writeInt(part);
    add(1, corvane::FrameKind::kRequest, 20, 1, values);
  }

  std::span<const unsigned char> bytes() const { return m_bytes; }

 private:
  void add(unsigned char peer, corvane::FrameKind kind, int number, unsigned char component,
           const corvane::ValueWriter& values) {
    const auto size = static_cast<unsigned>(values.size());
    const unsigned char step[] = {peer,
                                  static_cast<unsigned char>(kind),
                                  corvane::kFlagWantsReply,
                                  static_cast<unsigned char>(number),
                                  0,
                                  component,
                                  1,
                                  static_cast<unsigned char>(size),
                                  static_cast<unsigned char>(size >> 8)};
    m_bytes.insert(m_bytes.end(), std::begin(step), std::end(step));
    values.forEachPiece([&](auto piece) { m_bytes.insert(m_bytes.end(), piece.begin(), piece.end()); });
  }

  std::vector<unsigned char> m_bytes;
};

const Opening& opening(unsigned choice) {
  static const std::array<Opening, 4> all = [] {
    std::array<Opening, 4> openings;
    for (unsigned i = 0; i < openings.size(); ++i) {
      if ((i & 1) != 0) {
        openings[i].create(0, 1, protocol::kPortMonitorClientClass);
        openings[i].create(0, 3, CS_BridgeRouter::getClassName());
        openings[i].create(0, 5, kRecordsClass);
        openings[i].create(0, 7, protocol::kAdministrationServerClass);
      }
      if ((i & 2) != 0) {
        openings[i].create(1, 1, protocol::kSessionHostClass);
        openings[i].registration();
      }
    }
    return openings;
  }();
  return all[choice];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = prepareProcess();
  if (!prepared || size == 0) return 0;
  useApplication(makeApplication());
  {
    fuzz::ServedPeer first, second;
    const std::array<fuzz::ServedPeer*, 2> peers{&first, &second};
    fuzz::FrameScript before(opening(data[0] % 4).bytes());
    fuzz::play(before, peers);
    fuzz::FrameScript script(std::span(data + 1, size - 1));
    fuzz::play(script, peers);
  }
  for (const auto& session : g_application->sessions.status()) {
    if (session.connected) std::abort();
  }
  useApplication(nullptr);
  return 0;
}
