#include "client/known_servers.h"

#include "corvane/records/exception.h"
#include "programs/text.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace printclient {
namespace {

namespace fs = std::filesystem;

constexpr const char* kExtension = ".json";

std::optional<KnownServers::Server> readServer(const fs::path& path) try {
  std::ifstream file(path, std::ios::binary);
  const auto json = nlohmann::json::parse(file);
  KnownServers::Server server{
      programs::HostAndPort::parse(json.at("server").get<std::string>()), json.at("session").get<int>(), {}};
  fs::path key = path;
  key.replace_extension(".key");
  server.keyFile = programs::fromPath(key);
  if (server.session < 1 || !fs::exists(key)) return std::nullopt;
  return server;
} catch (const std::exception&) {
  return std::nullopt;
}

}  // namespace

fs::path KnownServers::ownFolder() {
#ifdef _WIN32
  if (const wchar_t* const folder = ::_wgetenv(L"APPDATA"); folder != nullptr && *folder != L'\0') {
    return fs::path(folder) / "printclient";
  }
#else
  if (const char* const folder = std::getenv("XDG_CONFIG_HOME"); folder != nullptr && *folder == '/') {
    return fs::path(folder) / "printclient";
  }
  if (const char* const home = std::getenv("HOME"); home != nullptr && *home == '/') {
    return fs::path(home) / ".config" / "printclient";
  }
#endif
  throw std::runtime_error("this account has no folder for its settings (HOME or APPDATA is not set)");
}

fs::path KnownServers::pathOf(const programs::HostAndPort& address, const char* extension) const {
  std::string name = fmt::format("{}_{}{}", address.host, address.port, extension);
  std::replace(name.begin(), name.end(), ':', '_');  // of an IPv6 address
  return m_folder / programs::toPath(name);
}

void KnownServers::makeFolder() const {
  std::error_code failure;
  fs::create_directories(m_folder, failure);
  if (!failure) fs::permissions(m_folder, fs::perms::owner_all, failure);
  if (failure) {
    throw std::runtime_error(
        fmt::format("{} cannot be made the folder of the keys: {}", programs::fromPath(m_folder), failure.message()));
  }
}

void KnownServers::prepare() const {
  makeFolder();
  const fs::path trial = m_folder / "trial.key";
  try {
    corvane::Key::fresh().replace(programs::fromPath(trial));
  } catch (const CS_Exception& refused) {
    throw std::runtime_error(fmt::format("{}; the invitation was not used", programs::oneLine(refused.detail())));
  }
  std::error_code ignored;
  fs::remove(trial, ignored);
}

KnownServers::Server KnownServers::add(const programs::HostAndPort& address, int session,
                                       const corvane::Key& key) const {
  makeFolder();
  std::error_code failure;
  const Server server{address, session, programs::fromPath(pathOf(address, ".key"))};
  key.replace(server.keyFile);
  const fs::path path = pathOf(address, kExtension);
  const fs::path made = programs::toPath(programs::fromPath(path) + ".new");
  {
    std::ofstream file(made, std::ios::binary | std::ios::trunc);
    file << nlohmann::json{{"server", address.text()}, {"session", session}}.dump(2) << '\n';
    file.close();
    if (!file) throw std::runtime_error(fmt::format("{} cannot be written", programs::fromPath(made)));
  }
  fs::rename(made, path, failure);
  if (failure)
    throw std::runtime_error(fmt::format("{} cannot be written: {}", programs::fromPath(path), failure.message()));
  return server;
}

std::vector<KnownServers::Server> KnownServers::all() const {
  std::vector<fs::path> paths;
  std::error_code failure;
  for (fs::directory_iterator at(m_folder, failure), end; !failure && at != end; at.increment(failure)) {
    if (at->path().extension() == kExtension) paths.push_back(at->path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Server> servers;
  for (const fs::path& path : paths) {
    if (auto server = readServer(path)) servers.push_back(std::move(*server));
  }
  return servers;
}

}  // namespace printclient
