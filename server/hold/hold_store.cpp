#include "server/hold/hold_store.h"

#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

namespace aps {
namespace {

constexpr const char* kJobSuffix = ".job";
constexpr const char* kComingSuffix = ".part";
constexpr const char* kSentSuffix = ".sent";
constexpr const char* kDamagedSuffix = ".damaged";
constexpr std::int64_t kMegabyte = 1024 * 1024;
constexpr std::size_t kDigits = 12;            // of a sequence number in a name
constexpr std::size_t kMostDeviceBytes = 200;  // of its name in a file

HoldStore::Owner ownerOf(const HeldJob& job) {
  return {job.session, job.key};
}

// The number at the beginning of a name; nothing where there is none.
std::optional<std::uint64_t> sequenceIn(const std::string& name) {
  if (name.size() < kDigits || name.find_first_not_of("0123456789") != kDigits) return std::nullopt;
  return std::stoull(name.substr(0, kDigits));
}

// What stands in the file of markSent().
std::wstring readDevice(const std::filesystem::path& path) {
  PrivateFile file = PrivateFile::open(path);
  std::string text(kMostDeviceBytes, '\0');
  text.resize(file.read(std::span(reinterpret_cast<unsigned char*>(text.data()), text.size())));
  return corvane::fromUtf8(text);
}

}  // namespace

HoldStore::Coming::Coming(HoldStore& store, HeldJob job, std::uint64_t sequence)
    : m_store(store), m_job(std::move(job)), m_sequence(sequence) {}

HoldStore::Coming::~Coming() {
  if (m_isComplete) return;
  m_file.reset();
  m_store.drop(m_sequence);
}

void HoldStore::Coming::append(std::span<const unsigned char> bytes) {
  try {
    m_store.addBytes(m_sequence, static_cast<std::int64_t>(bytes.size()));
    m_job.bytes += static_cast<std::int64_t>(bytes.size());
    m_file->append(bytes);
  } catch (const std::system_error& failure) {
    throw HoldRefusal(fmt::format("the job cannot be written to the folder of held jobs: {}", failure.what()),
                      "make room there, or see who may write to it, and print again");
  }
}

void HoldStore::Coming::complete() {
  HeldJob known;  // made first: behind the file's last name nothing may fail
  try {
    m_job.held =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    known = m_job;
    m_file->complete(m_job, m_store.fileOf(m_sequence, kJobSuffix));
  } catch (const std::system_error& failure) {
    throw HoldRefusal(fmt::format("the job cannot be written to the folder of held jobs: {}", failure.what()),
                      "make room there, or see who may write to it, and print again");
  }
  m_isComplete = true;
  bool isGivenUp = false;
  {
    const std::lock_guard<std::mutex> guard(m_store.m_lock);
    Entry& entry = m_store.m_entries.at(m_sequence);
    entry.job = std::move(known);
    entry.place = Place::kComplete;
    isGivenUp = entry.isGivenUp;
  }
  if (isGivenUp) m_store.remove(m_job.number);
}

HoldStore::HoldStore(std::filesystem::path folder, const Limits& limits, Log& log)
    : m_folder(std::move(folder)), m_limits(limits), m_log(log) {
  readFolder();
}

std::filesystem::path HoldStore::fileOf(std::uint64_t sequence, const char* extension) const {
  return m_folder.path() / fmt::format("{:0{}}{}", sequence, kDigits, extension);
}

void HoldStore::readFolder() try {
  for (const auto& found : std::filesystem::directory_iterator(m_folder.path())) {
    const std::string name = programs::fromPath(found.path().filename());
    const auto sequence = sequenceIn(name);
    if (!sequence) continue;
    m_latest = std::max(m_latest, *sequence);
    const std::string suffix = name.substr(kDigits);
    if (suffix == kJobSuffix) readFile(found.path(), *sequence);
    std::error_code ignored;
    if (suffix == kComingSuffix) std::filesystem::remove(found.path(), ignored);
    const bool isLeft = suffix == kSentSuffix && !std::filesystem::exists(fileOf(*sequence, kJobSuffix), ignored);
    if (isLeft) std::filesystem::remove(found.path(), ignored);
  }
} catch (const std::filesystem::filesystem_error& failure) {
  throw std::runtime_error(fmt::format("{} cannot be read: {}; let this account read and write there",
                                       programs::fromPath(m_folder.path()), failure.code().message()));
}

HoldStore::Entry HoldStore::entryOf(HeldJob job, std::uint64_t sequence) const {
  Entry entry;
  entry.job = std::move(job);
  entry.file = fileOf(sequence, kJobSuffix);
  entry.sent = fileOf(sequence, kSentSuffix);
  return entry;
}

void HoldStore::readFile(const std::filesystem::path& path, std::uint64_t sequence) try {
  Entry entry = entryOf(HeldFileReader(path).job(), sequence);
  entry.place = Place::kWaiting;
  entry.bytes = entry.job.bytes;
  if (std::filesystem::exists(entry.sent)) entry.sentTo = readDevice(entry.sent);
  const bool isThere = std::any_of(m_entries.begin(), m_entries.end(), [&entry](const auto& other) {
    return other.second.job.id == entry.job.id || other.second.job.number == entry.job.number;
  });
  if (isThere) throw HeldFileDamage("it holds the same job as another one");
  m_entries.emplace(sequence, std::move(entry));
} catch (const std::system_error& failure) {
  tellUnread(path, failure);
} catch (const std::bad_alloc& failure) {
  tellUnread(path, failure);
} catch (const std::exception& failure) {
  std::filesystem::path aside = path;
  aside += kDamagedSuffix;
  std::error_code problem;
  std::filesystem::rename(path, aside, problem);
  m_log.failure(
      fmt::format("a held job is lost because its file {} cannot be used: {}; {}. Let it be printed again: the records "
                  "of jobs say which one it was",
                  programs::fromPath(path), failure.what(),
                  problem ? "it stays where it is" : fmt::format("it is set aside as {}", programs::fromPath(aside))));
}

// Nothing is wrong with the file, as far as is known.
void HoldStore::tellUnread(const std::filesystem::path& path, const std::exception& failure) {
  m_log.failure(
      fmt::format("a held job waits until aps starts again because its file {} cannot be read now: {}; see that "
                  "this account may read it, and start aps again",
                  programs::fromPath(path), failure.what()));
}

void HoldStore::refuseFullLocked(const Owner& owner) const {
  std::int64_t jobs = 0;
  for (const auto& [sequence, entry] : m_entries)
    jobs += ownerOf(entry.job) == owner ? 1 : 0;
  if (jobs >= m_limits.jobs) {
    throw HoldRefusal(
        fmt::format("{} jobs are held for session {}, which is the limit (--hold-jobs)", jobs, owner.first),
        "start its print client, or cancel some, and print again");
  }
  if (m_entries.size() >= static_cast<std::size_t>(m_limits.totalJobs)) {
    throw HoldRefusal(
        fmt::format("{} jobs are held for all sessions, which is the limit (--hold-total-jobs)", m_entries.size()),
        "start the session's print client, or cancel some, and print again");
  }
}

std::unique_ptr<HoldStore::Coming> HoldStore::begin(HeldJob job) {
  std::uint64_t sequence = 0;
  std::unique_ptr<Coming> coming;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    refuseFullLocked(ownerOf(job));
    sequence = ++m_latest;
    coming.reset(new Coming(*this, job, sequence));
    m_entries.emplace(sequence, entryOf(std::move(job), sequence));
  }
  try {
    coming->m_file.emplace(fileOf(sequence, kComingSuffix));
  } catch (const std::system_error& failure) {
    throw HoldRefusal(fmt::format("the folder of held jobs takes no file: {}", failure.what()),
                      "make room there, or see who may write to it, and print again");
  }
  return coming;
}

void HoldStore::drop(std::uint64_t sequence) noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_entries.erase(sequence);
}

void HoldStore::addBytes(std::uint64_t sequence, std::int64_t bytes) {
  const std::lock_guard<std::mutex> guard(m_lock);
  Entry& own = m_entries.at(sequence);
  std::int64_t ofOwner = bytes, all = bytes;
  for (const auto& [other, entry] : m_entries) {
    all += entry.bytes;
    if (ownerOf(entry.job) == ownerOf(own.job)) ofOwner += entry.bytes;
  }
  if (ofOwner > m_limits.megabytes * kMegabyte) {
    throw HoldRefusal(fmt::format("with this job more than {} MB would be held for session {}, which is the limit "
                                  "(--hold-size)",
                                  m_limits.megabytes, own.job.session),
                      "start its print client, or cancel some jobs, and print again");
  }
  if (all > m_limits.totalMegabytes * kMegabyte) {
    throw HoldRefusal(fmt::format("with this job more than {} MB would be held for all sessions, which is the limit "
                                  "(--hold-total)",
                                  m_limits.totalMegabytes),
                      "start the session's print client, or cancel some jobs, and print again");
  }
  own.bytes += bytes;
}

HoldStore::Entries::iterator HoldStore::findLocked(int number) {
  return std::find_if(m_entries.begin(), m_entries.end(),
                      [number](const auto& entry) { return entry.second.job.number == number; });
}

HoldStore::Entries::const_iterator HoldStore::findLocked(int number) const {
  return std::find_if(m_entries.begin(), m_entries.end(),
                      [number](const auto& entry) { return entry.second.job.number == number; });
}

bool HoldStore::settle(int number) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found == m_entries.end()) return false;
  Entry& entry = found->second;
  Place& place = entry.place == Place::kDelivering ? entry.before : entry.place;
  if (place != Place::kComplete) return false;
  place = Place::kWaiting;
  return true;
}

bool HoldStore::isInLine(const Owner& owner) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return std::any_of(m_entries.begin(), m_entries.end(), [&owner](const auto& entry) {
    return ownerOf(entry.second.job) == owner && entry.second.place != Place::kAside;
  });
}

std::optional<HeldJob> HoldStore::take(const Owner& owner) {
  const std::lock_guard<std::mutex> guard(m_lock);
  Entry* next = nullptr;
  for (auto& [sequence, entry] : m_entries) {
    if (ownerOf(entry.job) != owner) continue;
    if (entry.place == Place::kDelivering) return std::nullopt;
    // One that is whole and not settled yet goes first.
    if (entry.place == Place::kComplete && next == nullptr) return std::nullopt;
    if (entry.place == Place::kWaiting && next == nullptr) next = &entry;
  }
  if (next == nullptr) return std::nullopt;
  std::optional<HeldJob> job = next->job;
  next->before = std::exchange(next->place, Place::kDelivering);
  return job;
}

bool HoldStore::claim(int number) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found == m_entries.end()) return false;
  Entry& entry = found->second;
  if (entry.place == Place::kComing || entry.place == Place::kDelivering) return false;
  entry.before = std::exchange(entry.place, Place::kDelivering);
  return true;
}

void HoldStore::putBack(int number) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found != m_entries.end() && found->second.place == Place::kDelivering) found->second.place = found->second.before;
}

void HoldStore::setAside(int number, std::string cause, std::string remedy) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found == m_entries.end()) return;
  found->second.place = Place::kAside;
  found->second.cause = std::move(cause);
  found->second.remedy = std::move(remedy);
}

void HoldStore::retry(const Owner& owner) {
  const std::lock_guard<std::mutex> guard(m_lock);
  for (auto& [sequence, entry] : m_entries) {
    if (ownerOf(entry.job) == owner && entry.place == Place::kAside) entry.place = Place::kWaiting;
  }
}

bool HoldStore::remove(int number) {
  Entries::node_type gone;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = findLocked(number);
    if (found == m_entries.end()) return false;
    if (found->second.place == Place::kComing) {
      found->second.isGivenUp = true;
      return false;
    }
    gone = m_entries.extract(found);
  }
  if (const std::string why = removeFiles(gone.mapped()); !why.empty()) {
    m_log.failure(
        fmt::format("the file {} of a job that is not held any more stays: {}; that is tried again as long as aps "
                    "runs, and it is to be gone before aps starts again",
                    programs::fromPath(gone.mapped().file), why));
    const std::lock_guard<std::mutex> guard(m_lock);
    m_left.push_back(std::move(gone));
  }
  return true;
}

std::string HoldStore::removeFiles(const Entry& entry) try {
  removeDurably(entry.file);
  removeDurably(entry.sent);
  return "";
} catch (const std::system_error& failure) {
  return failure.what();
}

void HoldStore::removeLeft() {
  std::vector<Entries::node_type> left;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    left.swap(m_left);
  }
  std::erase_if(left, [](const auto& entry) { return removeFiles(entry.mapped()).empty(); });
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_left.empty()) m_left.swap(left);
  std::move(left.begin(), left.end(), std::back_inserter(m_left));
}

std::filesystem::path HoldStore::setDamagedAside(int number) {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found == m_entries.end()) return {};
  std::filesystem::path aside = found->second.file;
  aside += kDamagedSuffix;
  std::error_code ignored;
  std::filesystem::rename(found->second.file, aside, ignored);
  std::filesystem::remove(found->second.sent, ignored);
  m_entries.erase(found);
  return aside;
}

std::filesystem::path HoldStore::pathOf(int number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  return found == m_entries.end() ? std::filesystem::path() : found->second.file;
}

void HoldStore::markSent(int number, const std::wstring& device) {
  std::filesystem::path path, made;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = findLocked(number);
    if (found == m_entries.end()) return;
    path = found->second.sent;
    made = fileOf(found->first, kComingSuffix);
  }
  std::error_code ignored;
  std::filesystem::remove(made, ignored);
  {
    const std::string text = corvane::toUtf8(device).substr(0, kMostDeviceBytes);
    PrivateFile file = PrivateFile::create(made);
    file.write(std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size()));
    file.sync();
  }
  moveDurably(made, path);
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found != m_entries.end()) found->second.sentTo = device;
}

void HoldStore::unmarkSent(int number) {
  std::filesystem::path path;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    const auto found = findLocked(number);
    if (found == m_entries.end() || !found->second.sentTo) return;
    path = found->second.sent;
    found->second.sentTo.reset();
  }
  removeDurably(path);
}

std::optional<std::wstring> HoldStore::sentTo(int number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  return found == m_entries.end() ? std::nullopt : found->second.sentTo;
}

std::optional<HoldStore::Known> HoldStore::find(int number) const {
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto found = findLocked(number);
  if (found == m_entries.end() || found->second.place == Place::kComing) return std::nullopt;
  return Known{found->second.job, found->second.cause, found->second.remedy};
}

std::vector<HoldStore::Known> HoldStore::all() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<Known> list;
  for (const auto& [sequence, entry] : m_entries) {
    if (entry.place != Place::kComing) list.push_back({entry.job, entry.cause, entry.remedy});
  }
  return list;
}

std::vector<HoldStore::Owner> HoldStore::owners() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<Owner> list;
  for (const auto& [sequence, entry] : m_entries) {
    if (std::find(list.begin(), list.end(), ownerOf(entry.job)) == list.end()) list.push_back(ownerOf(entry.job));
  }
  return list;
}

std::vector<protocol::HeldForSession> HoldStore::bySession() const {
  struct Sum {
    int jobs = 0;
    std::int64_t bytes = 0, oldest = std::numeric_limits<std::int64_t>::max();
  };
  std::map<int, Sum> sums;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const auto& [sequence, entry] : m_entries) {
      if (entry.place == Place::kComing) continue;
      Sum& sum = sums[entry.job.session];
      ++sum.jobs;
      sum.bytes += entry.job.bytes;
      sum.oldest = std::min(sum.oldest, entry.job.held);
    }
  }
  std::vector<protocol::HeldForSession> list;
  for (const auto& [session, sum] : sums) {
    if (list.size() == kMostListed) break;
    const std::chrono::system_clock::time_point oldest{std::chrono::seconds(sum.oldest)};
    list.push_back({session, sum.jobs, sum.bytes, programs::utcText(oldest)});
  }
  return list;
}

std::vector<HeldJob> HoldStore::expired(std::chrono::system_clock::time_point now) const {
  const auto latest = std::chrono::duration_cast<std::chrono::seconds>(
                          (now - std::chrono::hours(24) * m_limits.days).time_since_epoch())
                          .count();
  const std::lock_guard<std::mutex> guard(m_lock);
  std::vector<HeldJob> list;
  for (const auto& [sequence, entry] : m_entries) {
    const bool isAtRest = entry.place == Place::kWaiting || entry.place == Place::kAside;
    if (isAtRest && entry.job.held < latest) list.push_back(entry.job);
  }
  return list;
}

}  // namespace aps
