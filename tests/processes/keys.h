#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace tests {

// A folder with keys for one test, made by aps itself; gone when the object dies.
class Keys {
 public:
  Keys();
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  // The file of a fresh key for "monitor", "session-5" ...; any other name makes a key that the server does not know.
  std::string make(const std::string& name) const;
  std::string path(const std::string& name) const { return (m_folder / (name + ".key")).string(); }
  std::string folder() const { return m_folder.string(); }
  // What aps is started with.
  std::vector<std::string> serverOptions() const { return {"--keys", m_folder.string()}; }

 private:
  std::filesystem::path m_folder;
};

}  // namespace tests
