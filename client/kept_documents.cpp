#include "client/kept_documents.h"

#include "client/job_file.h"
#include "programs/text.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>
#include <system_error>
#include <utility>
#include <vector>

namespace printclient {

namespace {

constexpr const char* kMarkName = "kept";
constexpr const char* kDocument = "-document-";  // in front of its number, behind the name of its process's mark

}  // namespace

KeptDocument::~KeptDocument() {
  std::error_code ignored;
  if (!path.empty()) std::filesystem::remove(path, ignored);
}

KeptDocuments::KeptDocuments(std::filesystem::path folder, const Bounds& bounds, OnGone onGone)
    : m_folder(std::move(folder)),
      m_bounds(bounds),
      m_onGone(std::move(onGone)),
      m_markName(temporaryNameFor(kMarkName)),
      m_mark(m_folder / m_markName) {
  removeAbandonedDocuments();
}

void KeptDocuments::removeAbandonedDocuments() const noexcept try {
  std::error_code failure;
  std::vector<std::filesystem::path> all;
  for (std::filesystem::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure))
    all.push_back(at->path());
  for (const std::filesystem::path& path : all) {
    const std::string name = programs::fromPath(path.filename());
    const std::size_t end = name.find(kDocument);
    if (end == std::string::npos || !isTemporaryNameFor(kMarkName, name.substr(0, end))) continue;
    const std::filesystem::path mark = m_folder / programs::toPath(name.substr(0, end));
    std::error_code ignored;
    if (name.substr(0, end) == m_markName) continue;
    if (removeAbandoned(mark) || !std::filesystem::exists(mark, ignored)) std::filesystem::remove(path, ignored);
  }
} catch (const std::exception&) {
  // The next one tries again.
}

std::shared_ptr<KeptDocument> KeptDocuments::copyOf(JobFile& file, const std::string& extension) {
  auto document = std::make_shared<KeptDocument>();
  const std::string name = fmt::format("{}{}{}{}", m_markName, kDocument, ++m_last, extension);
  DiskFile copy(m_folder / name);
  file.copyTo(copy);
  copy.leave();
  document->path = m_folder / name;
  document->extension = extension;
  return document;
}

bool KeptDocuments::keep(const WholeDocument& whole) noexcept try {
  const std::uint64_t size = whole.size;
  if (m_bounds.most == 0 || size > std::min(m_bounds.bytes, m_bounds.largest)) return false;
  const std::shared_ptr<KeptDocument> document = copyOf(whole.file, whole.extension);
  document->origin = whole.origin;
  document->ticket = whole.ticket;
  document->size = size;
  std::list<Entry> gone;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    while (!m_entries.empty() && (m_entries.size() >= m_bounds.most || m_bytes + size > m_bounds.bytes))
      dropOldest(gone);
    m_entries.push_back({whole.listed, Clock::now(), document});
    m_bytes += size;
  }
  tellGone(gone);
  return true;
} catch (const std::exception&) {
  return false;  // the job goes its way without
}

void KeptDocuments::dropOldest(std::list<Entry>& gone) {
  m_bytes -= m_entries.front().document->size;
  gone.splice(gone.end(), m_entries, m_entries.begin());
}

std::shared_ptr<const KeptDocument> KeptDocuments::find(std::uint64_t number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found =
      std::find_if(m_entries.begin(), m_entries.end(), [number](const Entry& entry) { return entry.number == number; });
  return found == m_entries.end() ? nullptr : found->document;
}

void KeptDocuments::dropOld(Clock::time_point now) noexcept {
  std::list<Entry> gone;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    while (!m_entries.empty() && now - m_entries.front().since >= m_bounds.age)
      dropOldest(gone);
  }
  tellGone(gone);
}

void KeptDocuments::tellGone(const std::list<Entry>& gone) noexcept try {
  for (const Entry& entry : gone)
    m_onGone(entry.number);
} catch (const std::exception&) {
  // Without memory the page offers what is gone, and says so when it is asked for.
}

}  // namespace printclient
