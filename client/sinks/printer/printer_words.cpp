#include "client/sinks/printer/printer_words.h"

#include "client/sinks/copies_in_data.h"
#include "programs/text.h"

#include <fmt/format.h>

namespace printclient {

std::string printableTitle(const protocol::JobStart& ticket) {
  std::string title = programs::oneLine(ticket.documentName.empty() ? ticket.jobName : ticket.documentName);
  if (title.find_first_not_of(' ') == std::string::npos) return "a job";
  if (title.size() > kMaxTitleBytes) {
    std::size_t end = kMaxTitleBytes;
    while (end > 0 && (static_cast<unsigned char>(title[end]) & 0xC0) == 0x80)
      --end;
    title.resize(end);
  }
  return title;
}

std::string kindOf(const ContentProbe& content) {
  const std::string extension = content.extension();
  if (extension == ".pdf") return "PDF";
  if (extension == ".ps") return "PostScript";
  return "raw data";
}

Copies copiesOf(const protocol::JobStart& ticket, const std::filesystem::path& file) {
  const auto inData = copiesInFile(file);
  const int wanted = inData ? *inData : ticket.copies;
  Copies copies;
  if (wanted <= 1) return copies;
  copies.asked = inData ? 1 : wanted;
  copies.words = fmt::format(", {} copies{}", wanted, inData ? " by its own data" : "");
  return copies;
}

}  // namespace printclient
