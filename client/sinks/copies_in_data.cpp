#include "client/sinks/copies_in_data.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>

namespace printclient {
namespace {

constexpr std::string_view kBlanks = " \t";

// The number at the beginning, behind the signs and blanks that may stand in front of it.
std::optional<int> numberAt(std::string_view text, std::string_view mayStandInFront) {
  text.remove_prefix(std::min(text.find_first_not_of(mayStandInFront), text.size()));
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end != text.data() && number > 0 ? std::optional(number) : std::nullopt;
}

// The last number that stands behind the word.
std::optional<int> lastBehind(std::string_view text, std::string_view word) {
  for (std::size_t at = text.rfind(word); at != std::string_view::npos; at = text.rfind(word, at - 1)) {
    if (const auto number = numberAt(text.substr(at + word.size()), kBlanks)) return number;
    if (at == 0) break;
  }
  return std::nullopt;
}

// "@PJL SET COPIES=3", with blanks as people and drivers put them.
std::optional<int> ofPjl(std::string_view text) {
  std::optional<int> found;
  for (std::size_t at = text.find("@PJL"); at != std::string_view::npos; at = text.find("@PJL", at + 1)) {
    const std::string_view line = text.substr(at, std::min(text.find('\n', at), text.size()) - at);
    for (const std::string_view word : {"COPIES", "QTY"}) {
      const std::size_t named = line.find(word);
      if (named == std::string_view::npos || line.find('=', named) == std::string_view::npos) continue;
      if (const auto number = numberAt(line.substr(named + word.size()), " \t=")) found = number;
    }
  }
  return found;
}

// "ESC & l 3 X", also among others of its family: "ESC & l 1 o 3 X".
std::optional<int> ofPcl(std::string_view text) {
  constexpr std::string_view kFamily = "\x1b&l";
  std::optional<int> found;
  for (std::size_t at = text.find(kFamily); at != std::string_view::npos; at = text.find(kFamily, at + 1)) {
    for (std::size_t begin = at + kFamily.size();;) {
      const std::size_t letter = std::min(text.find_first_not_of("+-.0123456789", begin), text.size());
      const char what = letter < text.size() ? text[letter] : '\0';
      const auto number = numberAt(text.substr(begin, letter - begin), "+");
      if ((what == 'x' || what == 'X') && number) found = number;
      if (what < 'a' || what > 'z') break;
      begin = letter + 1;
    }
  }
  return found;
}

}  // namespace

std::optional<int> copiesInData(std::string_view head) {
  head = head.substr(0, kCopiesBytes);
  if (head.starts_with("%PDF-")) return std::nullopt;
  if (const std::size_t begin = head.find("%!"); begin != std::string_view::npos) {
    const std::string_view setup = head.substr(0, head.find("\n%%Page:", begin));
    for (const std::string_view word : {"NumCopies", "#copies"}) {
      if (const auto number = lastBehind(setup.substr(begin), word)) return number;
    }
    return ofPjl(setup.substr(0, begin));
  }
  const auto number = head.starts_with("\x1b") ? ofPcl(head) : std::nullopt;
  return number ? number : ofPjl(head);
}

std::optional<int> copiesInFile(const std::filesystem::path& file) {
  std::string head(kCopiesBytes, '\0');
  std::ifstream data(file, std::ios::binary);
  data.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(data.gcount()));
  return copiesInData(head);
}

}  // namespace printclient
