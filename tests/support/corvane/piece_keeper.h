#pragma once

#include "tests/support/corvane/echo_fixture.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

namespace echo {

// Keeps the pieces of each request where they are, and looks at them when it has to let go. Request 1 may be served at
// once, 2 is served by the bridge's thread; 3 waits until it may answer; 4 may be served at once and reads nothing.
class Keeper : public CS_Component {
 public:
  // What was let go: how many requests' pieces at once; and the number of those that had changed by then.
  struct Record {
    std::vector<std::size_t> lets;
    int changed = 0;
    int alive = 0;
  };
  static inline Record* record = nullptr;  // guarded by the lock of what was seen

  Keeper() { count(1); }
  ~Keeper() override { count(-1); }

  bool servesAtOnce(int request) const override { return request == 1 || request == 4; }
  bool processRequest(CS_InRequest& request) override {
    if (request.number() == 4) return true;
    if (request.number() == 3) {
      std::unique_lock guard(seen->lock);
      ++seen->asked;
      seen->changed.notify_all();
      seen->changed.wait(guard, [] { return seen->mayAnswer; });
      guard.unlock();
    } else {
      ++m_requests;
      for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
        m_pieces.emplace_back(piece, std::vector<unsigned char>(piece.begin(), piece.end()));
    }
    if (!request.wantsReply()) return true;
    request.reply().writeInt(static_cast<int>(m_requests));
    request.sendReply();
    return true;
  }
  void letGoOfPieces() noexcept override {
    const std::lock_guard guard(seen->lock);
    for (const auto& [piece, copy] : m_pieces)
      record->changed += std::ranges::equal(piece, copy) ? 0 : 1;
    if (!m_pieces.empty()) record->lets.push_back(m_requests);
    m_pieces.clear();
    m_requests = 0;
    seen->changed.notify_all();
  }

 private:
  static void count(int change) {
    const std::lock_guard guard(seen->lock);
    record->alive += change;
    seen->changed.notify_all();
  }

  std::size_t m_requests = 0;
  std::vector<std::pair<std::span<const unsigned char>, std::vector<unsigned char>>> m_pieces;
};

}  // namespace echo
