#include "corvane/components/program_monitor_c.h"

#include "corvane/base/process.h"
#include "corvane/components/channel.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/program_monitor.h"
#include "util/last_error.h"

#include <algorithm>

namespace {

void writeCut(CS_OutRequest& request, const std::wstring& text) {
  request.writeUTF(text.size() <= CS_ProgramMonitor_c::kMaxNoticeText
                       ? text.c_str()
                       : text.substr(0, CS_ProgramMonitor_c::kMaxNoticeText).c_str());
}

}  // namespace

const wchar_t* const CS_ProgramMonitor_c::m_className = L"Quillfern::ComponentServer::ProgramMonitor_c";
const wchar_t* const CS_ProgramMonitor_c::m_peerClassName = L"Quillfern::ComponentServer::ProgramMonitor_s";

bool CS_ProgramMonitor_c::initialize() {
  // Records leave without a start operation of the module that made this monitor.
  CS_Channel* channel = getChannel(true);
  channel->startSending();
  channel->startReceiving();
  return true;
}

bool CS_ProgramMonitor_c::release() {
  if (CS_ProgramMonitor::getDefaultMonitor().get() == this) CS_ProgramMonitor::setDefaultMonitor(nullptr);
  return CS_Component::release();
}

bool CS_ProgramMonitor_c::setProcessInfo(unsigned long processId, const wchar_t* moduleName, unsigned milliseconds) {
  try {
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kSetProcessInfo);
    request.writeInt(static_cast<int>(processId));
    request.writeUTF(moduleName);
    CS_InRequest reply(request);
    request.execute(reply, milliseconds);
    return reply.readBoolean();
  } catch (const CS_Exception&) {
    return false;
  } catch (const std::exception&) {
    return false;
  }
}

void CS_ProgramMonitor_c::write(const CS_Record& record) noexcept {
  corvane::LocalMonitor::instance().writeRecord(record);
  if (!isConnected()) return;
  try {
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kRecord);
    request.writeInt(record.level);
    request.writeInt(static_cast<int>(record.category));
    request.writeInt(record.number);
    request.writeInt(static_cast<int>(record.report));
    request.writeUTF(record.text);
    request.execute();
  } catch (...) {
    // The record is in the log.
  }
}

void CS_ProgramMonitor_c::notify(const CS_Notice& notice) noexcept {
  const mg::LastErrorKeeper keeper;
  corvane::LocalMonitor::instance().writeNotice(notice);
  if (!isConnected()) return;
  try {
    const std::size_t count = std::min<std::size_t>(notice.values.size(), CS_Notice::kMaxValues);
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kNotify);
    writeCut(request, notice.kind);
    writeCut(request, notice.line);
    request.writeInt(static_cast<int>(count));
    for (std::size_t i = 0; i < count; ++i) {
      writeCut(request, notice.values[i].first);
      writeCut(request, notice.values[i].second);
    }
    request.execute();
  } catch (...) {
    // The line is in the log.
  }
}

void CS_ProgramMonitor_c::flush() noexcept {
  corvane::LocalMonitor::instance().flushSink();
}
