#pragma once

#include "corvane/components/channel.h"
#include "corvane/wire/value_reader.h"
#include "corvane/wire/value_writer.h"

#include <memory>
#include <span>
#include <string>

// The values that came from a peer: the reply of a CS_OutRequest, or a request to a component of this process. They are
// read in the order in which they were written. Reading another type than was written, past the end, or from a
// connection that ended throws CS_Exception. Used by one thread.
class CS_InRequest {
 public:
  // For the reply of a CS_OutRequest, which gives its channel; filled by CS_OutRequest::execute.
  explicit CS_InRequest(const CS_Channel& request);
  // For a request from a peer, with where its values come from; correlation is 0 when no reply is wanted.
  CS_InRequest(const CS_Channel& channel, int number, std::uint32_t correlation, corvane::ValueReader values);
  CS_InRequest(const CS_InRequest&) = delete;
  CS_InRequest& operator=(const CS_InRequest&) = delete;
  ~CS_InRequest();

  int number() const { return m_number; }
  int readInt();
  bool readBoolean();
  // Owned by the request, valid until the next readUTF or release().
  const wchar_t* readUTF();
  // The next piece of a block of bytes, empty at its end; the piece lies in the receive buffer and is valid until the
  // component is told that it is not (CS_Component::letGoOfPieces), in a reply until the next read. A block larger than
  // a frame arrives in several pieces, so no process holds a whole job.
  std::span<const unsigned char> readPiece();
  // Reads past what was not read, so that the whole request has arrived.
  void skipRest();

  // The reply may wait for those to the requests that came with this one; see CS_Component::answersTogether.
  void answerTogether() { m_answersTogether = true; }
  bool wantsReply() const { return m_correlation != 0; }
  // The reply to this request: values are written to it and sendReply() sends it, once. A request that wants a reply
  // and got none is answered as failed when it is destroyed.
  corvane::ValueWriter& reply() { return m_reply; }
  void sendReply();
  void sendFailure(const wchar_t* text);

  void release();
  // The values, for what reads several of them at once.
  corvane::ValueReader& values() { return m_values; }
  CS_Channel& getChannel() { return m_channel; }
  void setValues(corvane::ValueReader values) { m_values = std::move(values); }

 private:
  int m_number = 0;
  std::uint32_t m_correlation = 0;
  bool m_replied = false;
  bool m_answersTogether = false;
  corvane::ValueReader m_values;
  corvane::ValueWriter m_reply;
  std::wstring m_text;
  CS_Channel m_channel;
};
