#include "client/page/page_link.h"

#include "client/job_output.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <span>
#include <system_error>
#include <utility>

namespace printclient {
namespace {

constexpr const char* kPageName = "page";
constexpr const char* kPageExtension = ".html";
constexpr std::string_view kBefore = "content=\"0;url=";
constexpr std::size_t kMostBytes = 4096;

std::string documentFor(const std::string& address) {
  return fmt::format(
      "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Print jobs</title>\n"
      "<meta name=\"referrer\" content=\"no-referrer\"><meta http-equiv=\"refresh\" {}{}\">\n"
      "</head><body><p><a href=\"{}\">Your print jobs</a></p></body></html>\n",
      kBefore, address, address);
}

// Empty when there is none in it.
std::string addressIn(const std::filesystem::path& document) {
  std::ifstream file(document, std::ios::binary);
  std::string text(kMostBytes, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  const std::size_t before = text.find(kBefore);
  if (before == std::string::npos) return "";
  const std::size_t begin = before + kBefore.size();
  return text.substr(begin, text.find('"', begin) - begin);
}

}  // namespace

PageLink::PageLink(const std::filesystem::path& folder, const std::string& address) {
  const std::string name = temporaryNameFor(kPageName);
  m_file = std::make_unique<DiskFile>(folder / name);
  const std::string text = documentFor(address);
  m_file->write({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
  m_path = folder / (name + kPageExtension);
  m_file->shareAs(m_path);
}

std::vector<FoundPage> findPages(const std::filesystem::path& folder) {
  std::vector<std::pair<std::filesystem::file_time_type, FoundPage>> found;
  std::error_code failure;
  for (std::filesystem::directory_iterator at(folder, failure), end; !failure && at != end; at.increment(failure)) {
    const std::string name = programs::fromPath(at->path().filename());
    if (!isTemporaryNameFor(kPageName, name) || !name.ends_with(kPageExtension)) continue;
    if (removeAbandoned(at->path())) continue;
    std::error_code ignored;
    FoundPage page{at->path(), addressIn(at->path())};
    if (!page.address.empty()) found.emplace_back(at->last_write_time(ignored), std::move(page));
  }
  std::sort(found.begin(), found.end(), [](const auto& one, const auto& other) { return one.first > other.first; });
  std::vector<FoundPage> pages;
  for (auto& [time, page] : found)
    pages.push_back(std::move(page));
  return pages;
}

}  // namespace printclient
