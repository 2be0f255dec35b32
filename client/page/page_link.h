#pragma once

#include "client/disk_file.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace printclient {

// How another process of the same person finds the page: a small document in the person's private folder, for this user
// only, that leads a browser to the page's address. It is there for as long as the object is. A browser is given the
// document and never the address, because anybody on the machine may read what programs are started with.
class PageLink {
 public:
  // Throws std::exception when the document cannot be written.
  PageLink(const std::filesystem::path& folder, const std::string& address);

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::unique_ptr<DiskFile> m_file;
  std::filesystem::path m_path;
};

// Such a document of a process that runs.
struct FoundPage {
  std::filesystem::path document;
  std::string address;
};
// All of them, the one that was made last first. Those of processes that were killed are removed.
std::vector<FoundPage> findPages(const std::filesystem::path& folder);

}  // namespace printclient
