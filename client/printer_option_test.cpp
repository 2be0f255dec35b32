#include "client/printer_option.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace printclient {
namespace {

protocol::Printer printerOf(const std::string& text) {
  return parsePrinterOption(text).printer;
}

const std::string kExample = "\nAn example: --printer \"Laser-2,driver=HP LaserJet,format=pdf\"";

std::string refusal(const std::string& text) {
  try {
    parsePrinterOption(text);
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
  return "";
}

TEST(PrinterOption, ANameAloneIsARawPrinterWithoutFurtherTexts) {
  const protocol::Printer printer = printerOf("Laser-2");
  EXPECT_EQ(printer.texts[0], L"Laser-2");
  for (std::size_t i = 1; i < 8; ++i)
    EXPECT_FALSE(printer.texts[i]) << i;
  EXPECT_EQ(printer.format, protocol::DataFormat::kRaw);
  EXPECT_FALSE(printer.isDefault);
  EXPECT_EQ(printer.resolution, 0);
}

TEST(PrinterOption, EveryKeyGoesToItsText) {
  const protocol::Printer printer = printerOf(
      "L,driver=d,comment=c,location=l,port=p,manufacturer=mf,model=md,share=s,format=pdf,default=yes,resolution=600");
  EXPECT_EQ(printer.texts[1], L"c");
  EXPECT_EQ(printer.texts[2], L"l");
  EXPECT_EQ(printer.texts[3], L"d");
  EXPECT_EQ(printer.texts[4], L"p");
  EXPECT_EQ(printer.texts[5], L"mf");
  EXPECT_EQ(printer.texts[6], L"md");
  EXPECT_EQ(printer.texts[7], L"s");
  EXPECT_EQ(printer.format, protocol::DataFormat::kPdf);
  EXPECT_TRUE(printer.isDefault);
  EXPECT_EQ(printer.resolution, 600);
}

TEST(PrinterOption, MaySayThatItIsNotTheDefault) {
  EXPECT_FALSE(parsePrinterOption("L,default=no").printer.isDefault);
}

TEST(PrinterOption, FormatsHaveTheirNumbers) {
  EXPECT_EQ(printerOf("L,format=raw").format, protocol::DataFormat::kRaw);
  EXPECT_EQ(printerOf("L,format=ps").format, protocol::DataFormat::kPostScript);
  EXPECT_EQ(printerOf("L,format=pdf").format, protocol::DataFormat::kPdf);
}

TEST(PrinterOption, TwoCommasStandForOne) {
  const protocol::Printer printer = printerOf("A,,B,driver=HP,, PCL 6");
  EXPECT_EQ(printer.texts[0], L"A,B");
  EXPECT_EQ(printer.texts[3], L"HP, PCL 6");
}

TEST(PrinterOption, AValueMayHoldAnEqualsSignAndUtf8) {
  const protocol::Printer printer = printerOf("B\xC3\xBCro,comment=a=b");
  EXPECT_EQ(printer.texts[0], L"B\u00fcro");
  EXPECT_EQ(printer.texts[1], L"a=b");
}

TEST(PrinterOption, AResolutionIsANumberFromOneToAHundredThousand) {
  EXPECT_EQ(printerOf("L,resolution=1").resolution, 1);
  EXPECT_EQ(printerOf("L,resolution=100000").resolution, 100000);
  for (const std::string text : {"0", "00", "-1", "+600", "100001", "4294967297", " 600", "600 ", "6.5", "0x258"}) {
    EXPECT_EQ(refusal("L,resolution=" + text), "--printer \"L,resolution=" + text +
                                                   "\": resolution is a number from 1 to 100000, not \"" + text + "\"" +
                                                   kExample);
  }
}

TEST(PrinterOption, AQueueOrAnAddressIsWhereItsJobsGo) {
  EXPECT_EQ(parsePrinterOption("L").target.queue, "");
  EXPECT_EQ(parsePrinterOption("L").target.uri, "");
  EXPECT_EQ(parsePrinterOption("L,queue=desk").target.queue, "desk");
  EXPECT_EQ(refusal("L,queue="), "--printer \"L,queue=\": queue has no value" + kExample);
#ifdef _WIN32
  EXPECT_EQ(refusal("L,uri=ipp://p/ipp/print"),
            "--printer \"L,uri=ipp://p/ipp/print\": uri is for Linux; give queue with the name of a printer of this "
            "machine" +
                kExample);
#else
  EXPECT_EQ(parsePrinterOption("L,uri=ipp://p:631/ipp/print").target.uri, "ipp://p:631/ipp/print");
  EXPECT_EQ(parsePrinterOption("L,uri=ipps://p/").target.uri, "ipps://p/");
  for (const std::string text : {"L,queue=desk,uri=ipp://p/ipp/print", "L,uri=ipp://p/ipp/print,queue=desk"}) {
    EXPECT_EQ(refusal(text),
              "--printer \"" + text + "\": queue and uri both say where its jobs go; give one of them" + kExample);
  }
  for (const std::string uri : {"http://p/ipp/print", "ipp://", "ipp:///ipp", "ipp://p", "p"}) {
    EXPECT_EQ(refusal("L,uri=" + uri), "--printer \"L,uri=" + uri +
                                           "\": uri is the address of a printer, as ipp://printer.local:631/ipp/print, "
                                           "not \"" +
                                           uri + "\"" + kExample);
  }
#endif
}

TEST(PrinterOption, SaysWhatIsWrongAndShowsAnExample) {
  EXPECT_EQ(refusal(""), "--printer \"\": the printer's name is missing" + kExample);
  EXPECT_EQ(refusal("driver=HP"),
            "--printer \"driver=HP\": the printer's name comes first, before \"driver=HP\"" + kExample);
  EXPECT_EQ(
      refusal("L,pdf"),
      "--printer \"L,pdf\": \"pdf\" is not key=value (a comma inside a name or value is written twice)" + kExample);
  EXPECT_EQ(refusal("L,format=doc"),
            "--printer \"L,format=doc\": there is no format \"doc\"; the formats are raw, ps and pdf" + kExample);
  EXPECT_EQ(refusal("L,driver="), "--printer \"L,driver=\": driver has no value" + kExample);
  EXPECT_EQ(refusal("L,driver=a,driver=b"), "--printer \"L,driver=a,driver=b\": driver is given twice" + kExample);
  EXPECT_EQ(refusal("L,default=1"), "--printer \"L,default=1\": default is yes or no, not \"1\"" + kExample);
  EXPECT_EQ(refusal("L,resolution=6x"),
            "--printer \"L,resolution=6x\": resolution is a number from 1 to 100000, not \"6x\"" + kExample);
  EXPECT_EQ(refusal("L,colour=yes"),
            "--printer \"L,colour=yes\": there is no key \"colour\"; the keys are driver, format, comment, location, "
            "port, manufacturer, model, share, default, resolution, queue and uri" +
                kExample);
}

}  // namespace
}  // namespace printclient
