#include "corvane/components/in_request.h"

#include "corvane/records/exception.h"
#include "corvane/wire/link.h"

namespace {

corvane::FrameHeader replyHeader(const CS_Channel& channel, corvane::FrameKind kind, std::uint32_t correlation) {
  corvane::FrameHeader header;
  header.kind = kind;
  header.bridge = channel.bridge();
  header.component = channel.component();
  header.correlation = correlation;
  return header;
}

}  // namespace

CS_InRequest::CS_InRequest(const CS_Channel& request) : m_channel(request.withReader(m_values)) {}

CS_InRequest::CS_InRequest(const CS_Channel& channel, int number, std::uint32_t correlation,
                           corvane::ValueReader values)
    : m_number(number),
      m_correlation(correlation),
      m_values(std::move(values)),
      m_channel(channel.withReader(m_values).withWriter(m_reply)) {}

CS_InRequest::~CS_InRequest() {
  try {
    if (wantsReply() && !m_replied) sendFailure(L"the request was not answered");
  } catch (...) {
    // The connection has ended, and with it every request that waited.
  }
}

int CS_InRequest::readInt() {
  return m_values.readInt();
}
bool CS_InRequest::readBoolean() {
  return m_values.readBoolean();
}

const wchar_t* CS_InRequest::readUTF() {
  m_text = m_values.readText();
  return m_text.c_str();
}

std::span<const unsigned char> CS_InRequest::readPiece() {
  return m_values.readPiece();
}
void CS_InRequest::skipRest() {
  m_values.skipRest();
}

void CS_InRequest::sendReply() {
  if (!wantsReply() || m_replied) return;
  m_replied = true;
  const corvane::FrameHeader header = replyHeader(m_channel, corvane::FrameKind::kReply, m_correlation);
  m_answersTogether ? m_channel.link().gather(header, m_reply) : m_channel.link().send(header, m_reply);
}

void CS_InRequest::sendFailure(const wchar_t* text) {
  if (!wantsReply() || m_replied) return;
  m_replied = true;
  m_channel.link().sendText(replyHeader(m_channel, corvane::FrameKind::kFailure, m_correlation), text);
}

void CS_InRequest::release() {
  m_text.clear();
  m_values = corvane::ValueReader();
}
