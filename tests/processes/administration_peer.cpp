#include "tests/processes/administration_peer.h"

#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "protocol/names.h"

#include <mutex>

namespace tests {
namespace {

constexpr unsigned kAnswerMilliseconds = 60000;

void registerClass() {
  static std::once_flag once;
  std::call_once(once, [] {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer::getServer()->registerClass(protocol::kAdministrationClientClass,
                                                   new corvane::ComponentClass<CS_Component>(protocol::kVersion));
  });
}

}  // namespace

AdministrationPeer::AdministrationPeer(int port) : m_connection(CS_Connection::create()) {
  dial(port);
}

AdministrationPeer::AdministrationPeer(int port, const std::string& keyFile) : m_connection(CS_Connection::create()) {
  m_connection->useKey(corvane::Identity::monitor(), keyFile);
  dial(port);
}

void AdministrationPeer::dial(int port) {
  registerClass();
  m_connection->connect(L"localhost", port, CS_Connection::kDirect, false);
  m_component =
      m_connection->getClassFactory(protocol::kAdministrationClientClass, protocol::kAdministrationServerClass, true)
          ->newInstance(0);
  m_component->getChannel(true)->startSending();
  m_component->getChannel(true)->startReceiving();
}

AdministrationPeer::~AdministrationPeer() {
  CS_Connection::destroy(m_connection, true);
}

AdministrationPeer::Status AdministrationPeer::status() {
  CS_OutRequest request(m_component, 30);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  Status status;
  status.version = reply.readUTF();
  status.process = reply.readInt();
  reply.readUTF();
  for (int sessions = reply.readInt(); sessions > 0; --sessions) {
    std::wstring line = std::to_wstring(reply.readInt());
    line += reply.readBoolean() ? L" connected" : L" away";
    reply.readUTF();
    const int printers = reply.readInt();
    for (int i = 0; i < printers; ++i) {
      line += i == 0 ? L": " : L", ";
      line += reply.readUTF();
      for (int text = 0; text < 8; ++text) {
        if (reply.readBoolean()) reply.readUTF();
      }
      reply.readBoolean();
      reply.readInt();
      reply.readInt();
    }
    status.sessions.push_back(line);
  }
  return status;
}

std::vector<std::wstring> AdministrationPeer::records(int count) {
  CS_OutRequest request(m_component, 31);
  request.writeInt(count);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  std::vector<std::wstring> lines;
  while (reply.readBoolean())
    lines.emplace_back(reply.readUTF());
  return lines;
}

std::pair<bool, std::wstring> AdministrationPeer::invite(int session, bool isSameUser, const wchar_t* address) {
  CS_OutRequest request(m_component, 34);
  request.writeInt(session);
  request.writeBoolean(isSameUser);
  request.writeUTF(address);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  const bool isMade = reply.readBoolean();
  return {isMade, reply.readUTF()};
}

AdministrationPeer::Notices AdministrationPeer::notices(int after, int waitMilliseconds) {
  CS_OutRequest request(m_component, 32);
  request.writeInt(after);
  request.writeInt(waitMilliseconds);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  Notices notices;
  notices.latest = reply.readInt();
  while (reply.readBoolean()) {
    Notice notice;
    notice.number = reply.readInt();
    reply.readUTF();
    notice.kind = reply.readUTF();
    notice.line = reply.readUTF();
    for (int values = reply.readInt(); values > 0; --values) {
      std::wstring name = reply.readUTF();
      notice.values.emplace_back(std::move(name), reply.readUTF());
    }
    notices.list.push_back(notice);
  }
  return notices;
}

std::vector<AdministrationPeer::Job> AdministrationPeer::jobs(int most) {
  CS_OutRequest request(m_component, 35);
  for (const int number : {0, most, 0, 0})
    request.writeInt(number);
  for (int text = 0; text < 3; ++text)
    request.writeUTF(L"");
  request.writeBoolean(false);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  std::vector<Job> jobs;
  while (reply.readBoolean()) {
    Job& job = jobs.emplace_back();
    job.number = reply.readInt();
    job.state = reply.readInt();
    job.server = reply.readUTF();
    job.user = reply.readUTF();
    job.session = reply.readInt();
    for (std::wstring* text : {&job.printer, &job.document, &job.spoolerJob})
      *text = reply.readUTF();
    job.process = reply.readInt();
    job.copies = reply.readInt();
    job.bytes = static_cast<unsigned>(reply.readInt());
    job.bytes += static_cast<long long>(reply.readInt()) << 32;
    job.began = reply.readUTF();
    job.ended = reply.readUTF();
    for (int stage = 0; stage < 4; ++stage)
      job.milliseconds.push_back(reply.readInt());
    job.cause = reply.readUTF();
    job.remedy = reply.readUTF();
  }
  return jobs;
}

std::pair<bool, std::wstring> AdministrationPeer::cancel(int job, const wchar_t* by) {
  CS_OutRequest request(m_component, 36);
  request.writeInt(job);
  request.writeUTF(by);
  CS_InRequest reply(request);
  request.execute(reply, kAnswerMilliseconds);
  const bool isDone = reply.readBoolean();
  return {isDone, reply.readUTF()};
}

}  // namespace tests
