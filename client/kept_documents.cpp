#include "client/kept_documents.h"

#include "client/job_file.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace printclient {

KeptDocuments::KeptDocuments(std::filesystem::path folder, const Bounds& bounds, OnGone onGone)
    : m_folder(std::move(folder)), m_bounds(bounds), m_onGone(std::move(onGone)) {}

std::shared_ptr<KeptDocument> KeptDocuments::copyOf(JobFile& file, const std::string& extension) const {
  auto document = std::make_shared<KeptDocument>();
  const std::string name = temporaryNameFor("kept");
  document->file = std::make_unique<DiskFile>(m_folder / name);
  file.copyTo(*document->file);
  document->path = m_folder / (name + extension);
  document->file->shareAs(document->path);
  document->extension = extension;
  return document;
}

bool KeptDocuments::keep(std::uint64_t number, const JobOrigin& origin, const protocol::JobStart& ticket, JobFile& file,
                         std::uint64_t size, const std::string& extension) noexcept try {
  if (m_bounds.most == 0 || size > m_bounds.bytes) return false;
  const std::shared_ptr<KeptDocument> document = copyOf(file, extension);
  document->origin = origin;
  document->ticket = ticket;
  document->size = size;
  std::list<Entry> gone;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    while (!m_entries.empty() && (m_entries.size() >= m_bounds.most || m_bytes + size > m_bounds.bytes))
      dropOldest(gone);
    m_entries.push_back({number, Clock::now(), document});
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
