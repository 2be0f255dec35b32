#include "client/taken_jobs.h"

#include "client/disk_file.h"
#include "corvane/base/text.h"
#include "corvane/trust/crypto.h"
#include "programs/text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

namespace printclient {

using protocol::HeldJobState;

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBegun = ".begun", kTakenSuffix = ".taken";
constexpr const char* kDevice = "device";
constexpr const char* kUnfinished = ".unfinished-";

// Tells a file again under another name.
struct FileMark {
  std::int64_t size = 0;
  std::int64_t written = 0;
  bool operator==(const FileMark&) const = default;
};

std::optional<FileMark> markOf(const fs::path& path) {
  std::error_code failure;
  if (fs::symlink_status(path, failure).type() != fs::file_type::regular) return std::nullopt;
  const auto size = fs::file_size(path, failure);
  if (failure) return std::nullopt;
  const auto written = fs::last_write_time(path, failure);
  if (failure) return std::nullopt;
  return FileMark{static_cast<std::int64_t>(size), static_cast<std::int64_t>(written.time_since_epoch().count())};
}

bool isInFolder(const fs::path& folder, const FileMark& wanted) {
  std::error_code failure;
  for (fs::directory_iterator at(folder, failure), end; !failure && at != end; at.increment(failure)) {
    if (markOf(at->path()) == wanted) return true;
  }
  return false;
}

std::string hexadecimal(std::size_t bytes) {
  std::vector<unsigned char> random(bytes);
  corvane::fillWithRandom(random);
  return fmt::format("{:02x}", fmt::join(random, ""));
}

// What a server says becomes part of a file's name: only exactly such a text does.
std::string checked(const std::wstring& id) {
  const bool isId =
      id.size() == protocol::HeldJob::kIdDigits && id.find_first_not_of(L"0123456789abcdef") == std::wstring::npos;
  if (!isId) throw std::runtime_error("the server names a held job in another way than this print client knows");
  return corvane::toUtf8(id);
}

}  // namespace

TakenJobs::Delivery::~Delivery() {
  if (m_hasBegun) end(false);
  const std::lock_guard<std::mutex> guard(m_jobs.m_lock);
  const auto found = m_jobs.m_running.find(m_id);
  if (found != m_jobs.m_running.end() && found->second.number == m_number) m_jobs.m_running.erase(found);
}

void TakenJobs::Delivery::begin(const std::optional<fs::path>& file) {
  const std::lock_guard<std::mutex> guard(m_jobs.m_lock);
  const auto found = m_jobs.m_running.find(m_id);
  if (found == m_jobs.m_running.end() || found->second.number != m_number) {
    throw std::runtime_error("the server delivers the job once more, and this delivery is over");
  }
  nlohmann::json begun = {{"what", "a job that was handed on"}};
  if (file) {
    const auto mark = markOf(*file);
    if (!mark) throw std::runtime_error(fmt::format("{} cannot be looked at", programs::fromPath(*file)));
    begun["file"] = programs::fromPath(fs::absolute(*file));
    begun["size"] = mark->size;
    begun["written"] = mark->written;
  }
  m_jobs.write(m_jobs.begunFile(m_id), begun.dump() + "\n");
  found->second.hasBegun = m_hasBegun = true;
}

void TakenJobs::Delivery::end(bool isTaken) noexcept try {
  if (!m_hasBegun) return;
  const std::lock_guard<std::mutex> guard(m_jobs.m_lock);
  m_hasBegun = false;
  if (const auto found = m_jobs.m_running.find(m_id); found != m_jobs.m_running.end()) found->second.hasBegun = false;
  std::error_code failure;
  if (!isTaken) {
    fs::remove(m_jobs.begunFile(m_id), failure);
    return;
  }
  fs::rename(m_jobs.begunFile(m_id), m_jobs.takenFile(m_id), failure);
  if (failure) m_jobs.write(m_jobs.takenFile(m_id), "{}\n");
} catch (const std::exception&) {
  // What was begun stays; the server is told that it is not clear.
}

fs::path TakenJobs::ownFolder() {
#ifdef _WIN32
  if (const wchar_t* const folder = ::_wgetenv(L"LOCALAPPDATA"); folder != nullptr && *folder != L'\0') {
    return fs::path(folder) / "printclient" / "held";
  }
#else
  if (const char* const folder = std::getenv("XDG_STATE_HOME"); folder != nullptr && *folder == '/') {
    return fs::path(folder) / "printclient" / "held";
  }
  if (const char* const home = std::getenv("HOME"); home != nullptr && *home == '/') {
    return fs::path(home) / ".local" / "state" / "printclient" / "held";
  }
#endif
  throw std::runtime_error(
      "this account has no folder for what its programs remember (HOME or LOCALAPPDATA is not set)");
}

fs::path TakenJobs::begunFile(const std::string& id) const {
  return m_folder / (id + std::string(kBegun));
}

fs::path TakenJobs::takenFile(const std::string& id) const {
  return m_folder / (id + std::string(kTakenSuffix));
}

void TakenJobs::write(const fs::path& path, const std::string& text) const {
  DiskFile file(m_folder / (kUnfinished + hexadecimal(8)));
  file.write(std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size()));
  file.sync();
  if (file.renameTo(path)) return;
  throw std::runtime_error(fmt::format("{} is there already", programs::fromPath(path)));
}

void TakenJobs::prepareLocked() try {
  if (m_isPrepared) return;
  fs::create_directories(m_folder);
  fs::permissions(m_folder, fs::perms::owner_all);
  forgetOldest();
  if (!fs::exists(m_folder / kDevice)) write(m_folder / kDevice, hexadecimal(16));
  m_isPrepared = true;
} catch (const std::exception& failure) {
  throw std::runtime_error(fmt::format("{}: {}", programs::fromPath(m_folder), failure.what()));
}

void TakenJobs::forgetOldest() const {
  std::vector<std::pair<fs::file_time_type, fs::path>> files;
  std::error_code failure;
  for (fs::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure)) {
    const std::string extension = programs::fromPath(at->path().extension());
    // Of a process that was killed; one that is in use stays.
    if (programs::fromPath(at->path().filename()).starts_with(kUnfinished)) removeAbandoned(at->path());
    if (extension != kBegun && extension != kTakenSuffix) continue;
    files.emplace_back(fs::last_write_time(at->path(), failure), at->path());
  }
  if (files.size() <= m_most) return;
  std::sort(files.begin(), files.end());
  files.resize(files.size() - m_most);
  for (const auto& [time, path] : files)
    fs::remove(path, failure);
}

std::wstring TakenJobs::device() {
  const std::lock_guard<std::mutex> guard(m_lock);
  prepareLocked();
  std::ifstream file(m_folder / kDevice, std::ios::binary);
  std::string name;
  std::getline(file, name);
  if (name.empty()) throw std::runtime_error(fmt::format("{} cannot be read", programs::fromPath(m_folder / kDevice)));
  return corvane::fromUtf8(name);
}

void TakenJobs::resolve(const std::string& id) const try {
  std::ifstream file(begunFile(id), std::ios::binary);
  const auto begun = nlohmann::json::parse(file);
  file.close();
  if (!begun.contains("file")) return;
  const fs::path path = programs::toPath(begun.at("file").get<std::string>());
  const FileMark mark{begun.at("size").get<std::int64_t>(), begun.at("written").get<std::int64_t>()};
  std::error_code ignored;
  if (markOf(path) == mark) {
    fs::remove(begunFile(id), ignored);
  } else if (isInFolder(path.parent_path(), mark)) {
    fs::rename(begunFile(id), takenFile(id), ignored);
  }
} catch (const std::exception&) {
  // It stays unclear.
}

HeldJobState TakenJobs::stateOf(const std::string& id) const {
  resolve(id);
  if (fs::exists(takenFile(id))) return HeldJobState::kTaken;
  return fs::exists(begunFile(id)) ? HeldJobState::kUnclear : HeldJobState::kNew;
}

TakenJobs::Answer TakenJobs::ask(const std::wstring& name) {
  const std::string id = checked(name);
  const std::lock_guard<std::mutex> guard(m_lock);
  prepareLocked();
  Running& running = m_running[id];
  if (running.hasBegun) return {HeldJobState::kBusy, nullptr};
  const HeldJobState state = stateOf(id);
  if (state != HeldJobState::kNew) {
    m_running.erase(id);
    return {state, nullptr};
  }
  running.number = ++m_latest;
  return {state, std::make_unique<Delivery>(*this, id, running.number)};
}

void TakenJobs::lookAtBegun() noexcept try {
  const std::lock_guard<std::mutex> guard(m_lock);
  std::error_code failure;
  std::vector<std::string> begun;
  for (fs::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure)) {
    if (at->path().extension() == kBegun) begun.push_back(programs::fromPath(at->path().stem()));
  }
  for (const std::string& id : begun)
    resolve(id);
} catch (const std::exception&) {
  // They stay unclear.
}

}  // namespace printclient
