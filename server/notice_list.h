#pragma once

#include "corvane/records/program_monitor.h"
#include "protocol/administration.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

namespace aps {

// The latest notices with numbers that rise by one from 1: at most protocol::Notices::kKept, and less when their texts
// are longer than kUnits together, so that all of them fit into one reply. Those that print clients bring about
// themselves have a part of the room of their own: where they are more than kOfClients, the session that has the most
// loses its oldest, and no session has more than kOfOneSession. So no client can drive out what the port monitor says,
// nor what another client does. Any thread may add, read and wait.
class NoticeList {
 public:
  static constexpr std::size_t kUnits = 1400 * 1000;  // UTF-16 units of all texts
  static constexpr int kOfClients = 300;
  static constexpr int kOfOneSession = 30;

  struct Entry {
    int number = 0;
    std::chrono::system_clock::time_point time;
    CS_Notice notice;
  };
  struct Answer {
    int latest = 0;              // 0 before the first
    std::vector<Entry> entries;  // after the number asked for, oldest first
  };

  // Texts and values past the bounds of a notice are cut. Throws std::bad_alloc.
  void add(CS_Notice notice);
  // The same for one that the print client of that session has brought about; 1 or more.
  void addOfClient(int session, CS_Notice notice);
  // Those after the number. Where there is none, waits so long for the first one, unless the list is closed, the flag
  // is set (and wake() called), or the number is one that this list has not given yet: then it belongs to an earlier
  // list, and the caller learns so from the latest number. Below 0 none are wanted, only the latest number.
  Answer after(int number, std::chrono::milliseconds wait, const std::atomic<bool>& cancelled);
  // Lets every waiting caller look at its flag.
  void wake();
  // No caller waits any more.
  void close();

 private:
  struct Kept : Entry {
    int session = 0;  // whose print client has brought it about; 0 for others
  };
  using Place = std::deque<Kept>::iterator;

  void add(int session, CS_Notice notice);
  // The oldest notice that has to make room for others; the end when there is none.
  Place surplusLocked();
  void dropLocked(const Place& at);

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::deque<Kept> m_entries;
  std::map<int, int> m_ofSessions;  // how many each session's print client has brought about
  int m_ofClients = 0;              // all of them
  std::size_t m_units = 0;
  int m_latest = 0;
  bool m_closed = false;
};

}  // namespace aps
