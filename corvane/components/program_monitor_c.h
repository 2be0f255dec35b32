#pragma once

#include "corvane/components/component.h"
#include "corvane/records/program_monitor.h"

// The client half of the program monitor: writes every record to this process's own log and sends it to the peer, a
// component of class "Quillfern::ComponentServer::ProgramMonitor_s" in the application server, as a one-way request.
// A record that cannot be sent is in the log all the same; nothing is recorded about that, because it would not end.
// The same holds for notices; what is sent of one is cut, the line in the log is not.
// When its connection ends, the local monitor becomes the default one again if this was it.
class CS_ProgramMonitor_c : public CS_Component, public CS_ProgramMonitor {
 public:
  static const wchar_t* const m_className;
  static const wchar_t* const m_peerClassName;

  // Request numbers towards the peer.
  static constexpr int kSetProcessInfo = 1;  // int process id, text name -> boolean
  static constexpr int kRecord = 2;          // int level, int category, int number, int report, text; no reply
  // text kind, text line, int number of values, and that many pairs of texts, name and value; no reply
  static constexpr int kNotify = 3;

  // Characters of a text in kNotify: with CS_Notice::kMaxValues values a request stays below
  // corvane::kMaxCollectedRequest.
  static constexpr std::size_t kMaxNoticeText = 2048;

  int getDataType() const override { return 4; }
  int addRef() override { return CS_Component::addRef(); }
  int removeRef() override { return CS_Component::removeRef(); }
  bool initialize() override;
  bool release() override;

  // Tells the peer whose records these are; false when the peer refuses or does not answer in that time.
  static constexpr unsigned kReplyMilliseconds = 120000;
  bool setProcessInfo(unsigned long processId, const wchar_t* moduleName, unsigned milliseconds = kReplyMilliseconds);
  void notify(const CS_Notice& notice) noexcept override;

 protected:
  void write(const CS_Record& record) noexcept override;
  void flush() noexcept override;
};
