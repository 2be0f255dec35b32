#include "client/sinks/printer/printer_words.h"

#include "corvane/base/process.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace printclient {
namespace {

std::string titleOf(const std::wstring& document, const std::wstring& job = L"") {
  protocol::JobStart ticket;
  ticket.documentName = document;
  ticket.jobName = job;
  return printableTitle(ticket);
}

TEST(PrinterWords, ATitleIsOneLineOfUtf8OfTheDocumentOrElseTheJob) {
  EXPECT_EQ(titleOf(L"\u00d6l\n1\x7f"), "\xC3\x96l 1?");
  EXPECT_EQ(titleOf(L"", L"Laser - Job #17"), "Laser - Job #17");
  EXPECT_EQ(titleOf(L""), "a job");
  EXPECT_EQ(titleOf(L" \n"), "a job");
}

TEST(PrinterWords, ATitleThatIsTooLongIsCutBetweenCharacters) {
  EXPECT_EQ(titleOf(std::wstring(255, L'x')), std::string(255, 'x'));
  EXPECT_EQ(titleOf(std::wstring(256, L'x')), std::string(255, 'x'));
  EXPECT_EQ(titleOf(std::wstring(254, L'x') + L"\u00d6"), std::string(254, 'x'));
  EXPECT_EQ(titleOf(std::wstring(253, L'x') + L"\u00d6"), std::string(253, 'x') + "\xC3\x96");
}

TEST(PrinterWords, CopiesThatTheDataAskForAreNotAskedForAgain) {
  const auto copies = [](int wanted, const std::string& data) {
    const auto file = std::filesystem::temp_directory_path() / ("copies_" + std::to_string(corvane::processId()));
    std::ofstream(file, std::ios::binary) << data;
    protocol::JobStart ticket;
    ticket.copies = wanted;
    const Copies found = copiesOf(ticket, file);
    std::filesystem::remove(file);
    return std::to_string(found.asked) + found.words;
  };
  EXPECT_EQ(copies(3, "%!PS\n"), "3, 3 copies");
  EXPECT_EQ(copies(3, "%!PS\n/NumCopies 3 def\n"), "1, 3 copies by its own data");
  EXPECT_EQ(copies(1, "%!PS\n/NumCopies 3 def\n"), "1, 3 copies by its own data");
  EXPECT_EQ(copies(3, "%!PS\n/NumCopies 1 def\n"), "1") << "the print processor has repeated the pages";
  for (const int none : {1, 0, -1})
    EXPECT_EQ(copies(none, "%!PS\n"), "1");
}

}  // namespace
}  // namespace printclient
