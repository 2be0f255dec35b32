#include "server/jobs_in_progress.h"

namespace aps {
namespace {

template <class Map, class Key>
void countDown(Map& map, const Key& key) {
  const auto counted = map.find(key);
  if (counted != map.end() && --counted->second == 0) map.erase(counted);
}

constexpr int kNoSession = 0;

}  // namespace

JobsInProgress::Mark JobsInProgress::begin(int session, const CS_Connection* connection) {
  {
    const std::lock_guard<std::mutex> guard(m_state->lock);
    std::size_t& jobs = m_state->ofSession[session];
    if (jobs >= m_limit) return nullptr;
    ++jobs;
    ++m_state->ofConnection[connection];
  }
  return mark(m_state, session, connection);
}

JobsInProgress::Mark JobsInProgress::wait(const CS_Connection* connection) {
  {
    const std::lock_guard<std::mutex> guard(m_state->lock);
    ++m_state->ofConnection[connection];
  }
  return mark(m_state, kNoSession, connection);
}

JobsInProgress::Mark JobsInProgress::mark(const std::shared_ptr<State>& state, int session,
                                          const CS_Connection* connection) {
  // Called with the state when the last holder lets go, and also when there is no memory to hold it.
  return {state.get(), [state, session, connection](void*) {
            const std::lock_guard<std::mutex> guard(state->lock);
            if (session != kNoSession) countDown(state->ofSession, session);
            countDown(state->ofConnection, connection);
          }};
}

bool JobsInProgress::isNeeded(const CS_Connection* connection) const {
  const std::lock_guard<std::mutex> guard(m_state->lock);
  return m_state->ofConnection.count(connection) != 0;
}

}  // namespace aps
