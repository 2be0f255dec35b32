#include "tests/support/corvane/socket_fixture.h"
#include "tests/support/import_seam.h"

MG_IMPORT_SEAM(L"kernel32.dll", CancelIoEx, FALSE)

namespace {

using namespace corvane;

TEST(SocketWindows, AReceiveThatCompletesWhileItIsCancelledKeepsItsBytes) {
  NarrowPair pair;
  const ImportSeams seams;
  const auto bytes = unlikeBytes(5);
  CancelIoExSeam.watch = [&](HANDLE, LPOVERLAPPED receive) {
    const Socket::Piece pieces[] = {bytes};
    pair.dialed.send(pieces);
    const Deadline until = after(10000);
    while (!HasOverlappedIoCompleted(receive) && std::chrono::steady_clock::now() < until)
      std::this_thread::yield();
  };
  std::vector<unsigned char> buffer(5);
  EXPECT_EQ(5u, pair.accepted.receive(buffer, std::chrono::steady_clock::now()));
  EXPECT_EQ(bytes, buffer);
}

TEST(SocketWindows, ShutdownCancelsWhatWaitsOnAnyThread) {
  NarrowPair pair;
  const ImportSeams seams;
  int cancelled = 0;
  CancelIoExSeam.watch = [&](HANDLE handle, LPOVERLAPPED one) {
    EXPECT_EQ(reinterpret_cast<HANDLE>(pair.dialedHandle), handle);
    EXPECT_EQ(nullptr, one);
    ++cancelled;
  };
  pair.dialed.shutdown();
  EXPECT_EQ(1, cancelled);
}

}  // namespace
