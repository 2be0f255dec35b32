#pragma once

#include "corvane/components/connection.h"
#include "corvane/components/dispatcher.h"
#include "corvane/net/socket.h"
#include "tests/fuzz/frame_script.h"

#include <memory>
#include <vector>

namespace fuzz {

// A served connection whose peer is the test: frames go to the handlers without a thread, and what is answered must be
// frames. Used by one thread.
class ServedPeer {
 public:
  // Says hello before the first frames; the process ends when that does not work.
  ServedPeer() = default;
  // Ends the connection; the process ends when something still holds it then.
  ~ServedPeer();
  ServedPeer(const ServedPeer&) = delete;
  ServedPeer& operator=(const ServedPeer&) = delete;

  // Frames that came with one receive. A connection that they have ended takes no more.
  void feed(std::span<Step> steps);
  // Takes what was sent to the peer meanwhile, so that no sender ever waits for room.
  void takeAnswers();

  // Numbers of the replies to requests that were taken so far, by their first integer; others count as 0.
  int positiveReplies() const { return m_positiveReplies; }

 private:
  void sayHello();
  void receiveAnswers();
  void readAnswers();

  int m_far = -1;
  CS_RCPtr<CS_Connection> m_connection;
  std::unique_ptr<corvane::Dispatcher> m_dispatcher;
  std::vector<unsigned char> m_answers;
  int m_positiveReplies = 0;
};

// The longest receive: what is answered to that many frames has room in a socket.
inline constexpr std::size_t kFramesAtOnce = 32;

// Feeds a script to the peers, frames in the order in which they stand there; a step's peer counts modulo their number.
void play(FrameScript& script, std::span<ServedPeer* const> peers);

}  // namespace fuzz
