#include "session/client_print_job.h"

#include "session/port_monitor_server.h"
#include "tests/support/guarded_heap.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace {

TEST(ClientPrintJob, StartsEmptyWithEveryNumberZero) {
  const ClientPrintJob job;
  for (const UTL_String* text : {&job.jobName, &job.text2, &job.documentName, &job.dataType, &job.postScriptPath,
                                 &job.pdfPath, &job.logPath, &job.clientPrinterName, &job.text15}) {
    EXPECT_TRUE(text->isEmpty());
  }
  EXPECT_EQ(job.readBuffer, nullptr);
  EXPECT_EQ(job.finalData, nullptr);
  EXPECT_EQ(job.finalDataLength, 0);
  EXPECT_EQ(job.bytesSent, 0);
  EXPECT_EQ(job.copies, 0);
  EXPECT_EQ(job.settings, (std::array<std::int32_t, 4>{}));
  EXPECT_EQ(job.reserved, 0u);
  EXPECT_EQ(job.reservedWords, (std::array<std::uint64_t, 2>{}));
}

TEST(ClientPrintJob, FreesOneArrayThatServesAsBothBuffersOnce) {
  const guarded_heap::Mark mark;
  auto* job = new ClientPrintJob;
  job->readBuffer = new unsigned char[4];
  job->finalData = job->readBuffer;
  delete job;  // a second free would end the test binary
  EXPECT_EQ(mark.countLeft(), 0u);
}

TEST(ClientPrintJob, FreesTwoArraysThroughTheVirtualDestructor) {
  static_assert(std::has_virtual_destructor_v<ClientPrintJob>);
  const guarded_heap::Mark mark;
  auto* job = new ClientPrintJob;
  job->readBuffer = new unsigned char[4];
  job->finalData = new unsigned char[4];
  delete job;
  EXPECT_EQ(mark.countLeft(), 0u);
}

TEST(ClientPrintJob, FreesAReadBufferThatNoFinalDataFollowed) {
  const guarded_heap::Mark mark;
  auto* job = new ClientPrintJob;
  job->readBuffer = new unsigned char[4];
  delete job;
  EXPECT_EQ(mark.countLeft(), 0u);
}

TEST(ClientPrinter, StartsEmptyAndIsDestroyedWithoutHavingBeenFilled) {
  static_assert(std::has_virtual_destructor_v<ClientPrinter>);
  const ClientPrinter printer;
  EXPECT_TRUE(printer.printerName.isEmpty());
  EXPECT_TRUE(printer.driverName.isEmpty());
  EXPECT_FALSE(printer.flag);
  EXPECT_EQ(printer.extraData, nullptr);
}

TEST(ClientPrinter, FreesItsExtraData) {
  const guarded_heap::Mark mark;
  auto* printer = new ClientPrinter;
  printer->extraData = new unsigned char[16];
  delete printer;
  EXPECT_EQ(mark.countLeft(), 0u);
}

}  // namespace
