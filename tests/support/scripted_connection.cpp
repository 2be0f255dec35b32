#include "tests/support/scripted_connection.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/wire/value_reader.h"

namespace {

constexpr unsigned kHandshakeMilliseconds = 5000;  // less than anything waits for an end

// "Quillfern::NTR::PrintClient" is written down as "PrintClient".
std::string shortName(const std::wstring& className) {
  const std::string name = corvane::toUtf8(className);
  return name.substr(name.rfind(':') + 1);
}

std::string requestName(const std::string& className, int number) {
  static const std::map<std::pair<std::string, int>, std::string> names = {
      {{"PrintClient", 1}, "StartJob"},
      {{"PrintClient", 2}, "WriteJob"},
      {{"PrintClient", 3}, "EndJob"},
      {{"PortMonitorClient", 4}, "AttachPrintJobToSession"},
      {{"PortMonitorClient", 5}, "GetPrinterInfo"},
      {{"PortMonitorClient", 6}, "GetPrinterList"},
      {{"PortMonitorClient", 7}, "LaunchApplication"},
      {{"ProgramMonitor_s", 1}, "SetProcessInfo"},
      {{"ProgramMonitor_s", 2}, "Record"},
  };
  const auto found = names.find({className, number});
  return found == names.end() ? "unknown to " + className : found->second;
}

}  // namespace

void ScriptedConnection::serve() {
  try {
    const corvane::HelloValues theirs = m_link.awaitHello(corvane::after(kHandshakeMilliseconds));
    m_link.welcome({});
    // The port may have been another server's before: the module of another test run still dials it then.
    const auto process = theirs.find(L"process");
    if (process == theirs.end() || process->second != std::to_wstring(corvane::processId())) return;
  } catch (const CS_Exception&) {
    return;  // Somebody who only knocked.
  }
  m_peer.write(m_number, "connect");
  m_link.setHandler(this);
  m_link.serve();
}

void ScriptedConnection::onLinkEnd(const std::wstring&) {
  m_peer.write(m_number, "end");
}

void ScriptedConnection::onFrame(corvane::Frame& frame) {
  const corvane::FrameHeader& header = frame.header;
  const Address address{header.bridge, header.component};
  if (header.kind == corvane::FrameKind::kCreate) {
    m_classes[address] = shortName(corvane::readText(frame.payload()));
    m_peer.write(m_number, "create " + m_classes[address]);
    return;
  }
  if (header.kind != corvane::FrameKind::kRequest) {
    m_peer.write(m_number, "frame of kind " + std::to_string(static_cast<int>(header.kind)));
    return;
  }
  std::vector<unsigned char>& collected = m_collected[address];
  collected.insert(collected.end(), frame.payload().begin(), frame.payload().end());
  if (header.hasMore()) return;
  std::vector<unsigned char> payload;
  payload.swap(collected);
  onRequest(header, std::move(payload));
}

void ScriptedConnection::onRequest(const corvane::FrameHeader& header, std::vector<unsigned char> payload) {
  const std::string className = m_classes[{header.bridge, header.component}];
  const std::string values = describeValues(std::move(payload));
  m_peer.write(m_number, (header.wantsReply() ? "request " : "one-way ") + std::to_string(header.number) + " " +
                             requestName(className, header.number) + ": " + values);
  bool known = false;
  ScriptedPeer::Answer answer;
  std::function<void()> action;
  {
    const std::lock_guard guard(m_peer.m_lock);
    const auto found = m_peer.m_answers.find({className, header.number});
    known = found != m_peer.m_answers.end();
    if (known) answer = found->second;
    const auto hook = m_peer.m_actions.find({className, header.number});
    if (hook != m_peer.m_actions.end()) action = hook->second;
  }
  if (action) action();
  if (known && !answer) {
    m_link.end(L"the script hangs up");
    return;
  }
  if (!header.wantsReply()) return;
  corvane::FrameHeader reply = header;
  reply.flags = 0;
  if (!known) {
    reply.kind = corvane::FrameKind::kFailure;
    m_link.sendText(reply, L"the script has no answer");
    return;
  }
  reply.kind = corvane::FrameKind::kReply;
  corvane::ValueWriter writer;
  answer(writer);
  m_link.send(reply, writer);
}

std::string ScriptedConnection::describeValues(std::vector<unsigned char> payload) {
  corvane::ValueReader reader(std::move(payload));
  std::string text;
  const auto add = [&](const std::string& value) { text += (text.empty() ? "" : ", ") + value; };
  while (const char tag = reader.nextTag()) {
    switch (static_cast<corvane::ValueTag>(tag)) {
      case corvane::ValueTag::kInt:
        add("int " + std::to_string(reader.readInt()));
        break;
      case corvane::ValueTag::kBoolean:
        add(std::string("boolean ") + (reader.readBoolean() ? "true" : "false"));
        break;
      case corvane::ValueTag::kText:
        add("text \"" + corvane::toUtf8(reader.readText()) + "\"");
        break;
      case corvane::ValueTag::kBytes: {
        std::size_t count = 0;
        for (auto piece = reader.readPiece(); !piece.empty(); piece = reader.readPiece()) {
          count += piece.size();
          const std::lock_guard guard(m_peer.m_lock);
          m_peer.m_bytes.insert(m_peer.m_bytes.end(), piece.begin(), piece.end());
        }
        add("bytes " + std::to_string(count));
        break;
      }
    }
  }
  return text;
}
