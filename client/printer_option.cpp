#include "client/printer_option.h"

#include "corvane/base/text.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <stdexcept>
#include <vector>

namespace printclient {
namespace {

constexpr int kMaxResolution = 100000;

struct TextKey {
  std::string_view key;
  std::size_t text;
};
constexpr TextKey kTextKeys[] = {{"comment", 1}, {"location", 2},     {"driver", protocol::Printer::kDriverText},
                                 {"port", 4},    {"manufacturer", 5}, {"model", 6},
                                 {"share", 7}};

[[noreturn]] void refuse(std::string_view option, const std::string& why) {
  throw std::invalid_argument(fmt::format(
      "--printer \"{}\": {}\nAn example: --printer \"Laser-2,driver=HP LaserJet,format=pdf\"", option, why));
}

std::vector<std::string> splitAtCommas(std::string_view text) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != ',') {
      parts.back().push_back(text[i]);
    } else if (i + 1 < text.size() && text[i + 1] == ',') {
      parts.back().push_back(',');
      ++i;
    } else {
      parts.emplace_back();
    }
  }
  return parts;
}

// "raw, ps and pdf".
std::string formatWords() {
  std::string list;
  for (const protocol::DataFormatNames& names : protocol::kDataFormats) {
    if (!list.empty()) list += &names == &protocol::kDataFormats.back() ? " and " : ", ";
    list += names.word;
  }
  return list;
}

protocol::DataFormat readFormat(std::string_view option, const std::string& value) {
  const auto format = protocol::dataFormatOf(value);
  if (!format) refuse(option, fmt::format("there is no format \"{}\"; the formats are {}", value, formatWords()));
  return *format;
}

bool yesOrNo(std::string_view option, const std::string& key, const std::string& value) {
  if (value == "yes") return true;
  if (value == "no") return false;
  refuse(option, fmt::format("{} is yes or no, not \"{}\"", key, value));
}

void readQueue(std::string_view option, const std::string& value, PrinterTarget& target) {
  if (!target.uri.empty()) refuse(option, "queue and uri both say where its jobs go; give one of them");
  target.queue = value;
}

void readUri(std::string_view option, const std::string& value, PrinterTarget& target) {
  if (!kPrintsToAddresses) refuse(option, "uri is for Linux; give queue with the name of a printer of this machine");
  if (!target.queue.empty()) refuse(option, "queue and uri both say where its jobs go; give one of them");
  const std::size_t scheme = value.starts_with("ipp://") ? 6 : value.starts_with("ipps://") ? 7 : 0;
  const std::size_t path = value.find('/', scheme);
  if (scheme == 0 || path == scheme || path == std::string::npos) {
    refuse(option,
           fmt::format("uri is the address of a printer, as ipp://printer.local:631/ipp/print, not \"{}\"", value));
  }
  target.uri = value;
}

int resolutionNumber(std::string_view option, const std::string& value) {
  int number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number < 1 || number > kMaxResolution) {
    refuse(option, fmt::format("resolution is a number from 1 to {}, not \"{}\"", kMaxResolution, value));
  }
  return number;
}

void readKey(std::string_view option, const std::string& key, const std::string& value, PrinterOption& result) {
  const auto* known = std::find_if(std::begin(kTextKeys), std::end(kTextKeys),
                                   [&key](const TextKey& candidate) { return candidate.key == key; });
  if (known != std::end(kTextKeys)) {
    result.printer.texts[known->text] = corvane::fromUtf8(value);
  } else if (key == "format") {
    result.printer.format = readFormat(option, value);
  } else if (key == "default") {
    result.printer.isDefault = yesOrNo(option, key, value);
  } else if (key == "resolution") {
    result.printer.resolution = resolutionNumber(option, value);
  } else if (key == "queue") {
    readQueue(option, value, result.target);
  } else if (key == "uri") {
    readUri(option, value, result.target);
  } else {
    refuse(option, fmt::format("there is no key \"{}\"; the keys are driver, format, comment, location, port, "
                               "manufacturer, model, share, default, resolution, queue and uri",
                               key));
  }
}

}  // namespace

PrinterOption parsePrinterOption(std::string_view text) {
  const std::vector<std::string> parts = splitAtCommas(text);
  if (parts.front().empty()) refuse(text, "the printer's name is missing");
  if (const auto equals = parts.front().find('='); equals != std::string::npos && parts.size() == 1) {
    refuse(text, fmt::format("the printer's name comes first, before \"{}\"", parts.front()));
  }
  PrinterOption result;
  result.printer.texts[0] = corvane::fromUtf8(parts.front());
  std::vector<std::string> seen;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const std::size_t equals = parts[i].find('=');
    if (equals == std::string::npos) {
      refuse(text, fmt::format("\"{}\" is not key=value (a comma inside a name or value is written twice)", parts[i]));
    }
    const std::string key = parts[i].substr(0, equals);
    const std::string value = parts[i].substr(equals + 1);
    if (value.empty()) refuse(text, fmt::format("{} has no value", key));
    if (std::find(seen.begin(), seen.end(), key) != seen.end()) refuse(text, fmt::format("{} is given twice", key));
    seen.push_back(key);
    readKey(text, key, value, result);
  }
  return result;
}

}  // namespace printclient
