#include "server/session_keeper.h"

#include "programs/paths.h"
#include "server/session_memory.h"

#include <stdexcept>

namespace aps {

SessionKeeper::SessionKeeper(const std::filesystem::path& file, SessionTable& table, std::shared_ptr<Log> log)
    : m_file(file), m_name(programs::fromPath(file)), m_table(table), m_log(std::move(log)) {
  readFile();
  m_table.onChange([this] {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_changed = true;
    m_wakeUp.notify_all();
  });
  m_thread = std::thread([this] { run(); });
}

void SessionKeeper::readFile() {
  try {
    const auto text = m_file.read();
    if (!text) return;
    auto sessions = fromMemory(*text, std::chrono::system_clock::now());
    const std::size_t count = sessions.size();
    m_table.remember(std::move(sessions));
    m_log->line("sessions known from before: " + std::to_string(count) + ", from " + m_name);
  } catch (const std::runtime_error& failure) {
    std::string aside = "; it was set aside as " + m_name + ".damaged";
    try {
      m_file.setAside();
    } catch (const std::runtime_error& second) {
      aside = std::string("; it stays where it is: ") + second.what();
    }
    m_log->failure("the sessions of before are not known, the file " + m_name + " is of no use: " + failure.what() +
                   aside + ". Each session is known again when its print client comes");
  }
}

void SessionKeeper::run() {
  std::unique_lock<std::mutex> lock(m_lock);
  while (true) {
    m_wakeUp.wait(lock, [this] { return m_changed || m_stopping; });
    if (!m_changed) return;
    const bool isLast = m_stopping;
    m_changed = false;
    lock.unlock();
    writeFile();
    if (isLast) return;
    lock.lock();
    m_wakeUp.wait_for(lock, kPause, [this] { return m_stopping; });
  }
}

void SessionKeeper::writeFile() noexcept {
  try {
    m_file.replace(toMemory(m_table.known()));
    if (m_failed) m_log->line("the sessions are kept in " + m_name + " again");
    m_failed = false;
  } catch (const std::exception& failure) {
    if (!m_failed) {
      m_log->failure("the sessions are not kept in " + m_name + ": " + failure.what() +
                     "; see that its folder exists and has room. Printing goes on; after a restart of aps each session "
                     "is known again when its print client comes");
    }
    m_failed = true;
  }
}

void SessionKeeper::stop() {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_stopping) return;
    m_stopping = true;
    m_wakeUp.notify_all();
  }
  m_thread.join();
}

}  // namespace aps
