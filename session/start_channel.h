#pragma once

#include "corvane/channel.h"
#include "corvane/component.h"
#include "corvane/exception.h"
#include "corvane/message_numbers.h"

namespace mg {

// Makes a component that was just created ready for use: first what it sends may leave, then what its peer sends may
// reach it. Every new remote component of the monitor goes through here before its first request. Throws CS_Exception
// when the component has no channel because its owner has ended.
inline void startChannel(CS_Component& component) {
  CS_Channel* sending = component.getChannel(true);
  if (sending == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  sending->startSending();
  CS_Channel* receiving = component.getChannel(true);
  if (receiving == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  receiving->startReceiving();
}

}  // namespace mg
