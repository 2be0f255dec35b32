#include "tests/threads/quiet_peer.h"

#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/records/exception.h"
#include "corvane/wire/link.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <map>
#include <string>
#include <utility>

namespace {

class Connection : public corvane::FrameHandler {
 public:
  Connection(corvane::Socket socket, unsigned number) : m_link(std::move(socket)), m_number(number) {}

  void serve() {
    try {
      m_link.awaitHello(corvane::after(10000));
      m_link.welcome({});
    } catch (const CS_Exception&) {
      return;
    }
    m_link.setHandler(this);
    m_link.serve();
  }

  void onFrame(corvane::Frame& frame) override {
    const corvane::FrameHeader& header = frame.header;
    const std::pair address{header.bridge, header.component};
    if (header.kind == corvane::FrameKind::kCreate) {
      const std::string name = corvane::toUtf8(corvane::readText(frame.payload()));
      m_classes[address] = name.substr(name.rfind(':') + 1);
      return;
    }
    if (header.kind != corvane::FrameKind::kRequest || header.hasMore()) return;
    if (m_number % QuietPeer::kHangUpEvery == 0 && ++m_requests == m_number / QuietPeer::kHangUpEvery % 5 + 1) {
      m_link.end(L"the peer hangs up");
      return;
    }
    if (!header.wantsReply()) return;
    corvane::FrameHeader reply = header;
    reply.flags = 0;
    reply.kind = corvane::FrameKind::kReply;
    corvane::ValueWriter writer;
    answer(m_classes[address], header.number, writer);
    m_link.send(reply, writer);
  }
  void onBatchEnd() override {}
  void onBatchAbandoned() noexcept override {}
  void onLinkEnd(const std::wstring&) override {}

 private:
  void answer(const std::string& className, int number, corvane::ValueWriter& reply) const {
    if (className == "PrintClient") return reply.writeInt(1);
    reply.writeBoolean(true);
    if (className != "PortMonitorClient") return;
    if (number == 4) {
      reply.writeInt(1);
      reply.writeText(L"Quillfern::NTR::PrintClient");
      for (const int part : {4, 0, 1, 0})
        reply.writeInt(part);
    } else if (number == 5) {
      for (int i = 0; i < 9; ++i)
        reply.writeBoolean(false);
      reply.writeInt(m_number % 3 == 0 ? 3 : 1);
      reply.writeInt(0);
    } else if (number == 6) {
      for (const wchar_t* name : {L"Laser", L"Ink"}) {
        reply.writeBoolean(true);
        reply.writeText(name);
      }
      reply.writeBoolean(false);
    }
  }

  corvane::Link m_link;
  const unsigned m_number;
  unsigned m_requests = 0;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> m_classes;
};

std::string loopback() {
  corvane::initializeNetwork();
  return "127.0.0.1:0";
}

}  // namespace

QuietPeer::QuietPeer() : m_listener(loopback()), m_acceptor([this] { acceptAll(); }) {}

QuietPeer::~QuietPeer() {
  m_listener.stop();
  m_acceptor.join();
  reap(true);
}

void QuietPeer::acceptAll() {
  while (auto socket = m_listener.accept()) {
    reap(false);
    Served& served = m_served.emplace_back();
    auto connection = std::make_shared<Connection>(std::move(*socket), ++m_connections);
    served.thread = std::thread([connection, &served]() mutable {
      connection->serve();
      connection.reset();
      served.isOver = true;
    });
  }
}

void QuietPeer::reap(bool all) {
  for (auto served = m_served.begin(); served != m_served.end();) {
    if (!all && !served->isOver) {
      ++served;
      continue;
    }
    served->thread.join();
    served = m_served.erase(served);
  }
}
