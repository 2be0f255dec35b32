#pragma once

#include "corvane/trust/key.h"
#include "programs/host_and_port.h"

#include <filesystem>
#include <string>
#include <vector>

namespace printclient {

// The servers that a person has become a client of with an invitation, and the key of the session on each. They are two
// files for each server in a folder of the person's own: what is said about it, and the key, which only that person can
// read. Used by one thread. Failures are CS_Exceptions (3108) or std::runtime_errors, for a person.
class KnownServers {
 public:
  struct Server {
    programs::HostAndPort address;
    int session = 0;
    std::string keyFile;  // UTF-8
  };

  explicit KnownServers(std::filesystem::path folder) : m_folder(std::move(folder)) {}

  // That of the person who runs this program: printclient in $XDG_CONFIG_HOME, else in ~/.config; on Windows in
  // %APPDATA%.
  static std::filesystem::path ownFolder();

  // Makes the folder and sees that a key can be written there: before an invitation is used up for nothing.
  void prepare() const;
  // Takes the place of what was known about the same server.
  Server add(const programs::HostAndPort& address, int session, const corvane::Key& key) const;
  // In the order of their names. A file that says something else is left out, and so is one without its key.
  std::vector<Server> all() const;

 private:
  void makeFolder() const;
  std::filesystem::path pathOf(const programs::HostAndPort& address, const char* extension) const;

  const std::filesystem::path m_folder;
};

}  // namespace printclient
