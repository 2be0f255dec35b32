#include "client/sinks/printer/known_printers.h"

#include "client/known_servers.h"
#include "corvane/trust/crypto.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <string_view>
#include <system_error>

namespace printclient {
namespace {

namespace fs = std::filesystem;

std::string fingerprintOf(std::span<const unsigned char> certificate) {
  constexpr std::string_view kPurpose = "mgprint printer certificate";
  const auto* const purpose = reinterpret_cast<const unsigned char*>(kPurpose.data());
  return fmt::format("{:02x}", fmt::join(corvane::hmacSha256({purpose, kPurpose.size()}, certificate), ""));
}

// The name of the printer's file: what could mean something in a path is replaced.
std::string nameFor(const std::string& host, int port) {
  std::string name = fmt::format("{}_{}.certificate", host, port);
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == ':' || c == '/' || c == '\\' || c == '%'; }, '_');
  return name;
}

// False when there is one already, or none can be made.
bool writeNew(const fs::path& path, const std::string& text) {
  const fs::path made = programs::toPath(programs::fromPath(path) + ".new");
  {
    std::ofstream file(made, std::ios::binary | std::ios::trunc);
    file << text << '\n';
    file.close();
    if (!file) return false;
  }
  std::error_code failure;
  fs::create_hard_link(made, path, failure);  // whoever is first keeps his
  std::error_code ignored;
  fs::remove(made, ignored);
  return !failure;
}

}  // namespace

KnownPrinters KnownPrinters::ofThisPerson() {
  return KnownPrinters(KnownServers::ownFolder() / "printers");
}

std::string KnownPrinters::refusal(const std::string& host, int port,
                                   std::span<const unsigned char> certificate) const {
  if (certificate.empty()) return "it shows no certificate";
  const fs::path path = m_folder / programs::toPath(nameFor(host, port));
  const std::string fingerprint = fingerprintOf(certificate);
  std::error_code failure;
  fs::create_directories(m_folder, failure);
  if (!failure) fs::permissions(m_folder, fs::perms::owner_all, failure);
  if (!fs::exists(path, failure) && writeNew(path, fingerprint)) return "";
  std::string known;
  if (!(std::ifstream(path, std::ios::binary) >> known)) {
    return fmt::format("its certificate cannot be kept in {}; see that the folder can be written",
                       programs::fromPath(path));
  }
  if (known == fingerprint) return "";
  return fmt::format(
      "it shows another certificate than before, so that it may be another device; if the printer was replaced or "
      "reset, remove {}",
      programs::fromPath(path));
}

}  // namespace printclient
