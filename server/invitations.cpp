#include "server/invitations.h"

#include "corvane/records/exception.h"
#include "programs/invitation.h"
#include "programs/text.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <string_view>

namespace aps {
namespace {

namespace fs = std::filesystem;

long long secondsOf(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

// An invitation's file: the code, a blank, until when it is good in seconds since 1970, and a line end.
struct Content {
  std::string code;
  long long until = 0;

  std::string text() const { return fmt::format("{} {}\n", code, until); }

  static std::optional<Content> parse(std::string_view text) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos || !text.ends_with('\n')) return std::nullopt;
    Content content{std::string(text.substr(0, blank)), 0};
    const std::string_view digits = text.substr(blank + 1, text.size() - blank - 2);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), content.until);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return content;
  }
};

}  // namespace

std::string Invitations::file(int session) const {
  return fmt::format("{}/session-{}.invitation", m_keys.folder(), session);
}

std::string Invitations::make(int session, Guest guest) const {
  const corvane::Identity identity = corvane::Identity::session(session);
  const fs::path path = programs::toPath(file(session));
  std::error_code ignored;
  fs::remove(path, ignored);  // void from here on, whatever happens
  const bool hasKey = fs::exists(programs::toPath(m_keys.file(identity)), ignored);
  if (guest == Guest::kNext || !hasKey) {
    corvane::Key::fresh().replace(m_keys.file(identity));
  } else {
    m_keys.read(identity);  // one that cannot be used is no good for the guest either
  }
  const Content content{programs::Invitation::newCode(), secondsOf(std::chrono::system_clock::now() + kValid)};
  const std::string text = content.text();
  corvane::createKeyFile(file(session), std::span(reinterpret_cast<const unsigned char*>(text.data()), text.size()));
  return content.code;
}

std::optional<std::string> Invitations::codeOf(int session) const {
  std::array<unsigned char, 80> bytes;
  std::size_t size = 0;
  try {
    size = corvane::readKeyFile(file(session), bytes);
  } catch (const CS_Exception&) {
    return std::nullopt;
  }
  const auto content = Content::parse(std::string_view(reinterpret_cast<const char*>(bytes.data()), size));
  if (!content) return std::nullopt;
  const long long left = content->until - secondsOf(std::chrono::system_clock::now());
  // More is left than there can be when the clock was set back: then nobody knows how old it is.
  if (left > std::chrono::seconds(kValid).count() || left <= 0) return std::nullopt;
  return content->code;
}

std::optional<corvane::Key> Invitations::keyOf(int session) const {
  if (const auto code = codeOf(session)) return programs::Invitation::keyOf(*code);
  return std::nullopt;
}

std::optional<corvane::Key> Invitations::redeem(int session, const corvane::Bytes32& mark) const {
  // Of several that come at the same time one gets it. Removing its file alone does not decide that: on Windows several
  // can remove one file.
  const std::lock_guard<std::mutex> guard(m_lock);
  const auto code = codeOf(session);
  if (!code || !corvane::equalInConstantTime(programs::Invitation::keyOf(*code).mark(), mark)) return std::nullopt;
  std::error_code failure;
  if (!fs::remove(programs::toPath(file(session)), failure)) return std::nullopt;
  return m_keys.read(corvane::Identity::session(session));
}

}  // namespace aps
