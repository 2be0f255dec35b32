#include "client/sinks/printer/printer_words.h"

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

}  // namespace
}  // namespace printclient
