#include "client/notices/desktop_notices.h"
#include "tests/support/paper/paper_place.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <stdlib.h>
#include <systemd/sd-bus.h>
#include <thread>

namespace printclient {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

// A desktop's notification service on the bus of a place: notes what it is to show, on a thread of its own.
class NotificationService {
 public:
  explicit NotificationService(const char* name = "org.freedesktop.Notifications") {
    EXPECT_GE(sd_bus_open_user(&m_bus), 0);
    EXPECT_GE(sd_bus_add_filter(m_bus, nullptr, take, this), 0);
    EXPECT_GE(sd_bus_request_name(m_bus, name, 0), 0);
    m_thread = std::thread([this] {
      while (!m_isStopping) {
        while (sd_bus_process(m_bus, nullptr) > 0) {
        }
        sd_bus_wait(m_bus, 20000);
      }
    });
  }
  ~NotificationService() {
    m_isStopping = true;
    m_thread.join();
    sd_bus_flush_close_unref(m_bus);
  }
  NotificationService(const NotificationService&) = delete;
  NotificationService& operator=(const NotificationService&) = delete;

  std::vector<std::string> noted() {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_noted;
  }

 private:
  static int take(sd_bus_message* message, void* self, sd_bus_error*) {
    if (sd_bus_message_is_method_call(message, "org.freedesktop.Notifications", "Notify") <= 0) return 0;
    const char *program = "", *icon = "", *title = "", *text = "", *hint = "";
    unsigned replaces = 0;
    unsigned char urgency = 0;
    int time = 0;
    sd_bus_message_read(message, "susss", &program, &replaces, &icon, &title, &text);
    sd_bus_message_skip(message, "as");
    sd_bus_message_read(message, "a{sv}", 1, &hint, "y", &urgency);
    sd_bus_message_read(message, "i", &time);
    auto& service = *static_cast<NotificationService*>(self);
    {
      const std::lock_guard<std::mutex> guard(service.m_lock);
      service.m_noted.push_back(std::string(program) + "|" + icon + "|" + title + "|" + text + "|" + hint + "=" +
                                std::to_string(urgency) + "|" + std::to_string(time));
    }
    return sd_bus_reply_method_return(message, "u", 7U) < 0 ? -1 : 1;
  }

  sd_bus* m_bus = nullptr;
  std::atomic<bool> m_isStopping{false};
  std::mutex m_lock;  // guards what follows
  std::vector<std::string> m_noted;
  std::thread m_thread;
};

class DesktopNoticesTest : public ::testing::Test {
 protected:
  DesktopNoticesTest() {
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (m_place.folder() / "bus").string()).c_str(), 1);
  }
  ~DesktopNoticesTest() override { unsetenv("DBUS_SESSION_BUS_ADDRESS"); }

  const tests::PaperPlace m_place;
};

TEST_F(DesktopNoticesTest, TheServiceOfTheDesktopShowsThemAndNothingInThemIsMarkup) {
  NotificationService service;
  const auto desktop = openDesktop();
  EXPECT_EQ(desktop->show({"\"Report\" was not printed", "<b>No</b> paper & ink", true}), "");
  EXPECT_EQ(desktop->show({"A job waits", "why", false}), "");
  EXPECT_THAT(service.noted(),
              ElementsAre("printclient|printer-error|\"Report\" was not printed|&lt;b&gt;No&lt;/b&gt; paper &amp; "
                          "ink|urgency=2|15000",
                          "printclient|printer|A job waits|why|urgency=1|15000"));
}

TEST_F(DesktopNoticesTest, WithoutAServiceItSaysWhyAndTriesAgainWhenOneHasCome) {
  const auto desktop = openDesktop();
  EXPECT_THAT(desktop->show({"title", "text", true}), StartsWith("the desktop takes no notices: "));
  NotificationService service;
  EXPECT_EQ(desktop->show({"title", "text", true}), "");
  EXPECT_EQ(service.noted().size(), 1u);
}

TEST_F(DesktopNoticesTest, WithoutABusItSaysWhy) {
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  EXPECT_EQ(openDesktop()->show({"title", "text", true}),
            "there is no message bus of a desktop: No such file or directory");
}

}  // namespace
}  // namespace printclient
