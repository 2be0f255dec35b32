#pragma once

#include "tests/support/import_seam.h"

#include <windows.h>

#include <cstdint>
#include <set>
#include <string>

// Sees every call of this binary's main thread that asks Windows for a right, and as whom it is made: "process log
// opened", "user printer opened". The queue, the event log and message boxes stand in for the real ones; the settings
// of the module are those of this object, and where the converter is installed is not known.
class IdentityWatch {
 public:
  explicit IdentityWatch(std::uint16_t serverPort);
  ~IdentityWatch();
  IdentityWatch(const IdentityWatch&) = delete;
  IdentityWatch& operator=(const IdentityWatch&) = delete;

  // What was done since it was last asked.
  std::set<std::string> take();
  // From now on the module has a key file, of that name.
  void useKey(const std::wstring& file) { m_keyFile = file; }
  const std::wstring& log() const { return m_log; }

  // The number of the token that the thread acts with; 0 for that of the process.
  static LONGLONG token();

 private:
  void note(const std::string& what);
  void watchRegistry();
  void watchSettings();
  void watchFiles();
  void watchLeftovers();
  void watchQueue();
  void watchRest();

  ImportSeams m_seams;
  const DWORD m_thread = GetCurrentThreadId();
  const std::uint16_t m_port;
  std::wstring m_keyFile;
  std::wstring m_log;
  std::set<std::string> m_seen;
};
