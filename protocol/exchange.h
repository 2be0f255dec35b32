#pragma once

#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "protocol/values.h"

// How a message is sent: a structure with its values, its request number (kNumber), and where it is answered the
// structure of the answer (Answer). Everything throws CS_Exception.
namespace protocol {

// Sends a message that is not answered. A return proves only that the system took the bytes.
template <class Message>
void tell(const CS_RCPtr<CS_Component>& component, const Message& message) {
  CS_OutRequest request(component, static_cast<int>(Message::kNumber));
  write(request.values(), message);
  request.execute();
}

// Sends a message and reads the answer, for which it waits so long. After a failure the answer has what came before it.
template <class Message>
void ask(const CS_RCPtr<CS_Component>& component, const Message& message, unsigned milliseconds,
         typename Message::Answer& answer) {
  CS_OutRequest request(component, static_cast<int>(Message::kNumber));
  write(request.values(), message);
  CS_InRequest reply(request);
  request.execute(reply, milliseconds);
  read(reply.values(), answer);
}

template <class Message>
typename Message::Answer ask(const CS_RCPtr<CS_Component>& component, const Message& message, unsigned milliseconds) {
  typename Message::Answer answer;
  ask(component, message, milliseconds, answer);
  return answer;
}

// The side that is asked: the message of a request, and the answer to it.
template <class Message>
Message read(CS_InRequest& request) {
  return read<Message>(request.values());
}

template <class Answer>
void answer(CS_InRequest& request, const Answer& answer) {
  write(request.reply(), answer);
  request.sendReply();
}

}  // namespace protocol
