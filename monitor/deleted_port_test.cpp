#include "ports/port_records.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/monitor/job_end_fixture.h"
#include "tests/support/monitor/message_box_seam.h"
#include "tests/support/monitor/send_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/temporary_folder.h"

#include <cstdio>
#include <future>
#include <gmock/gmock.h>
#include <utility>

MG_PLAIN_SEAM(L"msvcrt.dll", fopen, nullptr)

// What becomes of a handle, of a call that is under way and of a job when their port is deleted.
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBecauseOfThePort[] =
    "The port was deleted before the job had ended. Add the port again, then print again.";

class DeletedPortTest : public JobEndTest {
 protected:
  DeletedPortTest() {
    PortsRegistry::set(L"CPP5");
    watchMessageBoxes();
  }

  // From here on the fixture has no port to tidy up any more.
  DWORD remove() {
    const DWORD result = configure(L"DeletePort", L"CPP5");
    m_stale = m_port;
    m_port = nullptr;
    return result;
  }
  static DWORD configure(const wchar_t* command, const wchar_t* input) {
    return MGXcvDataPort(nullptr, command, reinterpret_cast<PBYTE>(text(input)), 10, nullptr, 0, nullptr);
  }
  tagPort* open(const wchar_t* name) {
    HANDLE handle = nullptr;
    MGOpenPort(nullptr, text(name), &handle);
    return static_cast<tagPort*>(handle);
  }
  // Whether another port can be found, by another thread, within the time that a test waits for anything.
  bool otherPortsAreFree() {
    m_list.AddPort(L"CPP6", 0);
    auto found = std::async(std::launch::async, [this] { return MGClosePort(open(L"CPP6")); });
    const bool free = found.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    if (!free) m_peer.hangUp();
    return free && found.get() == TRUE;
  }

  // The result of a call that another thread makes; failed when it is not over within the time that a test waits for
  // anything.
  static BOOL resultOf(std::future<BOOL>& call) {
    const bool isOver = call.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    EXPECT_TRUE(isOver) << "the call goes on";
    return isOver ? call.get() : -1;
  }

  PortsRegistry m_registry;
  HANDLE m_stale = nullptr;
};

TEST_F(DeletedPortTest, EveryCallOnItsHandleIsABadArgumentAndLeavesTheQueue) {
  start();
  remove();
  m_queue.clear();
  BYTE byte = 1;
  m_written = 99;
  EXPECT_EQ(MGStartDocPort(m_stale, text(L"Laser"), 18, 1, reinterpret_cast<LPBYTE>(&m_document)), FALSE);
  EXPECT_EQ(MGWritePort(m_stale, &byte, 1, &m_written), FALSE);
  EXPECT_EQ(MGEndDocPort(m_stale), FALSE);
  EXPECT_EQ(MGClosePort(m_stale), FALSE);
  EXPECT_EQ(m_written, 0u);
  const std::string bad = "10: number 3015";
  EXPECT_THAT(records(), ElementsAre(bad, closing("MGStartDocPort"), bad, closing("MGWritePort"), bad,
                                     closing("MGEndDocPort"), bad, closing("MGClosePort")));
  EXPECT_THAT(m_queue.calls(), ElementsAre("close printer null"));
  EXPECT_EQ(told().size(), 1u);
}

TEST_F(DeletedPortTest, EndsTheJobInProgressTowardsItsClientAtOnce) {
  start();
  write("abc");
  EXPECT_EQ(remove(), DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(m_peer.waitForLine("end"));
  EXPECT_EQ(m_world.countOf("request 3"), 0u);
  expectFailure(kBecauseOfThePort);
  EXPECT_EQ(values()[6], "bytes=3");
  MGClosePort(m_stale);
}

TEST_F(DeletedPortTest, LeavesNeitherTheRecordNorTheJobNorItsStream) {
  const guarded_heap::Mark mark;
  m_list.AddPort(L"CPP6", 0);
  tagPort* const port = open(L"CPP6");
  MGStartDocPort(port, text(L"Laser"), 18, 1, reinterpret_cast<LPBYTE>(&m_document));
  configure(L"DeletePort", L"CPP6");
  MGClosePort(port);
  EXPECT_TRUE(m_peer.waitForOpen(0));
  std::vector<guarded_heap::Block> left = mark.left();
  std::erase_if(left, [](const guarded_heap::Block& block) {
    return block.size != sizeof(tagPort) && block.size != sizeof(CriticalSection) &&
           block.size != sizeof(ClientPrintJob) && block.size != sizeof(PrintServer) &&
           block.size != sizeof(CS_Connection);
  });
  EXPECT_TRUE(left.empty()) << guarded_heap::describe(left);
}

TEST_F(DeletedPortTest, RemovesWhatWasCollectedOfItsJob) {
  m_printerValue = 3;
  start();
  write("%!PS-Adobe-3.0\n");
  const std::wstring collected = m_port->job->postScriptPath.wide();
  ASSERT_TRUE(TemporaryFolder::exists(collected));
  remove();
  EXPECT_FALSE(TemporaryFolder::exists(collected));
  MGClosePort(m_stale);
}

TEST_F(DeletedPortTest, RemovesWhatWasCollectedOfAJobThatIsGivenUp) {
  m_printerValue = 3;
  start();
  write("%!PS-Adobe-3.0\n");
  const std::wstring collected = m_port->job->postScriptPath.wide();
  m_printerValue = 1;
  start(L"Laser", 18);
  EXPECT_FALSE(TemporaryFolder::exists(collected));
}

TEST_F(DeletedPortTest, ByHandEndsTheJobInProgressAsWell) {
  start();
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, nullptr, text(L"CPP5")), TRUE);
  m_stale = std::exchange(m_port, nullptr);
  EXPECT_TRUE(m_peer.waitForLine("end"));
  expectFailure(kBecauseOfThePort);
  MGClosePort(m_stale);
}

// The port of another session must never get the rest of a job through a handle that means its address by accident.
TEST_F(DeletedPortTest, AHandleToItNeverReachesANewPort) {
  start();
  write("abc");
  const guarded_heap::Reuse reuse(m_port);
  remove();
  m_list.AddPort(L"CPP6", 0);
  tagPort* const other = open(L"CPP6");
  EXPECT_NE(static_cast<HANDLE>(other), m_stale);
  MGStartDocPort(other, text(L"Laser"), 18, 1, reinterpret_cast<LPBYTE>(&m_document));
  m_peer.clear();
  BYTE byte = 1;
  EXPECT_EQ(MGWritePort(m_stale, &byte, 1, &m_written), FALSE);
  EXPECT_EQ(MGEndDocPort(m_stale), FALSE);
  EXPECT_NE(other->job, nullptr);
  EXPECT_EQ(MGClosePort(m_stale), FALSE);
  EXPECT_EQ(other->flags, kPortIsOpen | kPortHasDocument);
  EXPECT_EQ(MGEndDocPort(other), TRUE);
  EXPECT_THAT(m_peer.bytes(), IsEmpty());
  MGClosePort(other);
  configure(L"DeletePort", L"CPP6");
}

TEST_F(DeletedPortTest, AHandleThatIsOpenTwiceKeepsItsAddressUntilBothAreClosed) {
  open(L"CPP5");
  const guarded_heap::Reuse reuse(m_port);
  remove();
  EXPECT_EQ(MGClosePort(m_stale), FALSE);
  m_list.AddPort(L"CPP6", 0);
  EXPECT_NE(static_cast<HANDLE>(open(L"CPP6")), m_stale);
  EXPECT_EQ(MGClosePort(m_stale), FALSE);
  m_list.AddPort(L"CPP7", 0);
  EXPECT_EQ(static_cast<HANDLE>(open(L"CPP7")), m_stale);
}

// A print client that takes nothing holds up its own job only, and not even that once the port is deleted.
TEST_F(DeletedPortTest, AWriteThatASlowClientHoldsUpEndsAndHoldsUpNobody) {
  std::promise<void> taken;
  std::promise<void> goOn;
  m_peer.whenAsked("PrintClient", 1, [&] {
    taken.set_value();
    goOn.get_future().wait();
  });
  start();
  taken.get_future().wait();
  tagPort* const port = m_port;
  std::vector<BYTE> much(64 << 20, BYTE{'x'});
  DWORD count = 0;
  std::promise<void> sending;
  send_seam::watch([&, begun = false]() mutable {
    if (!std::exchange(begun, true)) sending.set_value();
  });
  auto written = std::async(std::launch::async,
                            [&] { return MGWritePort(port, much.data(), static_cast<DWORD>(much.size()), &count); });
  sending.get_future().wait();
  EXPECT_TRUE(otherPortsAreFree());
  EXPECT_EQ(remove(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(resultOf(written), FALSE);
  goOn.set_value();
  expectFailure(kBecauseOfThePort);
  EXPECT_EQ(MGWritePort(m_stale, much.data(), 1, &m_written), FALSE);
  MGClosePort(m_stale);
}

TEST_F(DeletedPortTest, AnEndThatWaitsForTheClientIsOverAtOnce) {
  std::promise<void> asked;
  std::promise<void> goOn;
  m_peer.whenAsked("PrintClient", 3, [&] {
    asked.set_value();
    goOn.get_future().wait();
  });
  start();
  write("abc");
  tagPort* const port = m_port;
  auto ended = std::async(std::launch::async, [&] { return MGEndDocPort(port); });
  asked.get_future().wait();
  remove();
  EXPECT_EQ(resultOf(ended), FALSE);
  goOn.set_value();
  expectFailure(kBecauseOfThePort);
  MGClosePort(m_stale);
}

TEST_F(DeletedPortTest, AStartThatWaitsForTheServerIsOverAtOnceAndDeletesItsJob) {
  std::promise<void> asked;
  std::promise<void> goOn;
  m_peer.whenAsked("PortMonitorClient", 5, [&] {
    asked.set_value();
    goOn.get_future().wait();
  });
  tagPort* const port = m_port;
  auto started = std::async(std::launch::async, [&] {
    return MGStartDocPort(port, text(L"Laser"), 17, 1, reinterpret_cast<LPBYTE>(&m_document));
  });
  asked.get_future().wait();
  remove();
  EXPECT_EQ(resultOf(started), FALSE);
  goOn.set_value();
  EXPECT_THAT(m_queue.calls(), testing::Contains("set job 17 level 0 command 5"));
  expectFailure(kBecauseOfThePort);
  MGClosePort(m_stale);
}

// Deleted before there is a connection that could be ended: the job is not begun on one either.
TEST_F(DeletedPortTest, AStartThatIsNotConnectedYetIsRefused) {
  m_queue.whenAsked("job 17 level 2", [this] { remove(); });
  tagPort* const port = m_port;
  EXPECT_EQ(MGStartDocPort(port, text(L"Laser"), 17, 1, reinterpret_cast<LPBYTE>(&m_document)), FALSE);
  EXPECT_EQ(m_world.countOf("request 5"), 0u);
  EXPECT_THAT(records(), testing::Contains("10: number 3015"));
  expectFailure(kBecauseOfThePort);
  EXPECT_TRUE(m_peer.waitForOpen(0));
  MGClosePort(m_stale);
}

// The call itself is not disturbed, and then nobody else is left to tell of the job and to free it.
TEST_F(DeletedPortTest, TheLastCallEndsTheJobEvenIfItWentWellItself) {
  m_printerValue = 3;
  start();
  const std::wstring collected = m_port->job->postScriptPath.wide();
  fopenSeam.watch = [this](const char*, const char*) {
    if (m_port != nullptr) remove();
  };
  tagPort* const port = m_port;
  BYTE data[] = {'%', '!', 'P', 'S', '-'};
  EXPECT_EQ(MGWritePort(port, data, sizeof data, &m_written), TRUE);
  fopenSeam.watch = nullptr;
  EXPECT_EQ(m_written, sizeof data);
  expectFailure(kBecauseOfThePort);
  EXPECT_EQ(values()[6], "bytes=0");
  EXPECT_FALSE(TemporaryFolder::exists(collected));
  EXPECT_EQ(MGClosePort(m_stale), FALSE);
}

TEST_F(DeletedPortTest, AJobThatItsClientHasTakenWasDelivered) {
  m_queue.whenAsked("set job 17 level 0 command 6", [this] { remove(); });
  start();
  tagPort* const port = m_port;
  EXPECT_EQ(MGEndDocPort(port), TRUE);
  EXPECT_THAT(told(), ElementsAre("Job 17 \"letter.txt\" on \"Laser\" (session 5) was delivered: 0 bytes."));
  MGClosePort(m_stale);
}

TEST_F(DeletedPortTest, ItsJobIsReportedWithoutALock) {
  // Answers from within the notice whether others can use the list meanwhile.
  class Asking : public RecordingMonitor {
   public:
    std::function<void()> ask;
    void notify(const CS_Notice& notice) noexcept override {
      RecordingMonitor::notify(notice);
      ask();
    }
  };
  const CS_RCPtr<Asking> monitor(new Asking);
  bool wereFree = false;
  monitor->ask = [&] { wereFree = otherPortsAreFree(); };
  start();
  CS_ProgramMonitor::setDefaultMonitor(monitor);
  remove();
  CS_ProgramMonitor::setDefaultMonitor(&m_world.records().monitor());
  EXPECT_EQ(monitor->notices().size(), 1u);
  EXPECT_TRUE(wereFree);
  MGClosePort(m_stale);
}

// A job does not depend on the bit that says whether its port is open.
TEST_F(DeletedPortTest, TheJobOfAPortThatWasClosedIsReportedAsWell) {
  start();
  MGClosePort(m_port);
  remove();
  EXPECT_TRUE(m_peer.waitForLine("end"));
  expectFailure(kBecauseOfThePort);
}

TEST_F(DeletedPortTest, AJobThatFailedBeforeIsNotReportedAgain) {
  start();
  breakConnection();
  write("abc");
  remove();
  EXPECT_EQ(told().size(), 1u);
  EXPECT_THAT(told().front(), testing::HasSubstr("Failed to send print job data"));
  MGClosePort(m_stale);
}

// The spooler initialises the monitor again while a job is printing on a port of the list before.
TEST_F(DeletedPortTest, AHandleOfAListThatWasReplacedGoesOnWorking) {
  start();
  CPortList later;
  later.AddPort(L"CPP5", 0);
  CPortList::setInstance(&later);
  EXPECT_NE(open(L"CPP5"), m_port);
  EXPECT_EQ(configure(L"DeletePort", L"CPP5"), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(write("abc"), TRUE);
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(MGClosePort(m_port), TRUE);
  CPortList::setInstance(&m_list);
}

TEST_F(DeletedPortTest, AHandleWithoutAListGoesOnWorking) {
  start();
  CPortList::setInstance(nullptr);
  EXPECT_EQ(write("abc"), TRUE);
  EXPECT_EQ(end(), TRUE);
  EXPECT_EQ(MGClosePort(m_port), TRUE);
}

}  // namespace
