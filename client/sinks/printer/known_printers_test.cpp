#include "client/sinks/printer/known_printers.h"

#include "corvane/base/process.h"

#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace printclient {
namespace {

namespace fs = std::filesystem;

class KnownPrintersTest : public ::testing::Test {
 protected:
  ~KnownPrintersTest() override { fs::remove_all(m_folder); }

  const fs::path m_folder = fs::temp_directory_path() / ("known_printers_" + std::to_string(corvane::processId()));
  const KnownPrinters m_printers{m_folder / "printers"};
  const std::vector<unsigned char> m_certificate = {0x30, 0x82, 1};
  const std::vector<unsigned char> m_other = {0x30, 0x82, 2};
};

TEST_F(KnownPrintersTest, TheFirstCertificateOfAPrinterIsBelievedAndNoOtherFromThenOn) {
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_certificate), "");
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_certificate), "");
  const fs::path file = m_folder / "printers" / "desk.local_631.certificate";
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_other),
            "it shows another certificate than before, so that it may be another device; if the printer was replaced "
            "or reset, remove " +
                file.string());
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_certificate), "");
  EXPECT_EQ(m_printers.refusal("desk.local", 443, m_other), "");
  fs::remove(file);
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_other), "");
}

TEST_F(KnownPrintersTest, ANameStaysWithinTheFolder) {
  EXPECT_EQ(m_printers.refusal("../[fe80::1%eth0]", 631, m_certificate), "");
  EXPECT_TRUE(fs::exists(m_folder / "printers" / ".._[fe80__1_eth0]_631.certificate"));
}

TEST_F(KnownPrintersTest, WithoutACertificateOrARoomForItNothingIsBelieved) {
  EXPECT_EQ(m_printers.refusal("desk.local", 631, {}), "it shows no certificate");
  std::ofstream(m_folder) << "no folder";
  EXPECT_EQ(m_printers.refusal("desk.local", 631, m_certificate),
            "its certificate cannot be kept in " + (m_folder / "printers" / "desk.local_631.certificate").string() +
                "; see that the folder can be written");
}

TEST_F(KnownPrintersTest, AFileThatIsDamagedIsBelievedNeverAgain) {
  fs::create_directories(m_folder / "printers");
  std::ofstream(m_folder / "printers" / "desk.local_631.certificate") << "x";
  EXPECT_NE(m_printers.refusal("desk.local", 631, m_certificate), "");
}

}  // namespace
}  // namespace printclient
