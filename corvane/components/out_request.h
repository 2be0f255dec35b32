#pragma once

#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/wire/frame.h"
#include "corvane/wire/value_writer.h"

class CS_InRequest;

// One request to a component's peer: values are written in order, then execute() sends it. Lives on the caller's stack
// and is used by one thread. Small values are kept inside the request; job data given to write() is not copied, so the
// caller's buffer must stay until execute() has returned.
//
// Every operation throws CS_Exception when it fails; a request whose execute() threw may have been sent in part, which
// ends the connection.
class CS_OutRequest {
 public:
  CS_OutRequest(const CS_RCPtr<CS_Component>& component, int number);
  CS_OutRequest(const CS_OutRequest&) = delete;
  CS_OutRequest& operator=(const CS_OutRequest&) = delete;

  void writeInt(int value);
  void writeBoolean(bool value);
  // A null text is written as an empty one. At most corvane::kMaxTextUnits UTF-16 units.
  void writeUTF(const wchar_t* text);
  // A block of bytes; the reader sees one block of that length.
  void write(const unsigned char* data, int length);
  void write(const unsigned char* data, int offset, int count);

  // Sends the request and does not wait: a return proves only that the system took the bytes.
  void execute();
  // Sends the request and waits for its reply, whose values the given request then reads.
  void execute(CS_InRequest& reply, unsigned timeoutMilliseconds);
  // Gives back what the request holds; it cannot be executed afterwards.
  void release();

  // The values, for what writes several of them at once.
  corvane::ValueWriter& values() { return m_values; }
  CS_Channel& getChannel() { return m_channel; }
  operator const CS_Channel&() const { return m_channel; }  // what its reply is made from
  const CS_RCPtr<CS_Component>& component() const { return m_component; }

 private:
  corvane::FrameHeader header() const;
  void throwIfEnded() const;

  CS_RCPtr<CS_Component> m_component;
  int m_number;
  corvane::ValueWriter m_values;
  CS_Channel m_channel;
};
