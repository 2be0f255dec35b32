#pragma once

#include "protocol/printer.h"

#include <algorithm>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What an administration tool (kAdministrationClientClass) asks the application server (kAdministrationServerClass),
// directly on its connection. All requests but the invitation and the cancelling of a job only look. Times are UTC as
// "2026-01-31T23:59:59Z".
namespace protocol {

enum class AdministrationRequest {
  kStatus = 30,  // for older tools: no values, answered with a ServerStatus, or refused where that would be too long
  kRecords = 31,
  kNotices = 32,
  kStatusPage = 33,
  kInvite = 34,
  kJobs = 35,       // job_record.h
  kCancelJob = 36,  // likewise
};

struct ListedPrinter : Printer {
  std::wstring localName;  // on the server; the same whenever the client comes back

  static void layout(auto& self, auto& wire) {
    wire(self.localName);
    Printer::layout(self, wire);
  }
};

struct ListedSession {
  static constexpr Limit kPrinters{100000};  // more than any server has; a peer that claims more is not a server

  int number = 0;
  bool isConnected = false;  // its print client
  std::wstring since;        // when it is (not) connected
  std::vector<ListedPrinter> printers;

  static void layout(auto& self, auto& wire) {
    wire(self.number, self.isConnected, self.since);
    wire.counted(self.printers, kPrinters);
  }
};

// The jobs that the server holds for a session whose print client is away.
struct HeldForSession {
  int session = 0;
  int jobs = 0;
  std::int64_t bytes = 0;  // of their data
  std::wstring since;      // when the oldest of them was held

  bool operator==(const HeldForSession&) const = default;
  static void layout(auto& self, auto& wire) { wire(self.session, self.jobs, self.bytes, self.since); }
};

struct HeldForSessions {
  static constexpr Limit kSessions{100000};  // likewise

  std::vector<HeldForSession> list;  // of the sessions that have some, in the order of their numbers

  static void layout(auto& self, auto& wire) { wire.counted(self.list, kSessions); }
};

struct ServerStatus {
  static constexpr Limit kSessions{100000};  // likewise

  std::wstring version;
  int process = 0;
  std::wstring since;
  std::vector<ListedSession> sessions;                 // in the order of their numbers
  std::optional<HeldForSessions> held = std::nullopt;  // an earlier version does not tell; no part of the layout

  // Null when no session has that number.
  const ListedSession* session(int number) const;

  static void layout(auto& self, auto& wire) {
    wire(self.version, self.process, self.since);
    wire.counted(self.sessions, kSessions);
  }
};

// Some of the sessions; the first and the last one may have only some of their printers in the answer. A page is at
// most about a megabyte, whatever sessions bring along.
struct StatusPage {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kStatusPage;

  // Where the page begins; both 0 for the first one.
  int session = 0;
  int printer = 0;
  auto operator<=>(const StatusPage&) const = default;

  static void layout(auto& self, auto& wire) { wire(self.session, self.printer); }

  struct Answer;
};

struct StatusPage::Answer {
  ServerStatus status;
  std::optional<StatusPage> next;  // none behind the last page, which alone tells what is held

  static void layout(auto& self, auto& wire) {
    wire(self.status, self.next);
    wire.ifMore([&] { wire(self.status.held); });
  }
};

// Makes an invitation to a session, by which somebody's print client gets its key, once. Unless the guest is the same
// user with a further device, the session gets a new key.
struct Invite {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kInvite;

  int session = 0;
  bool isSameUser = false;
  std::wstring
      address;  // host and port where the guest's print client reaches the server; empty: as the server knows it

  static void layout(auto& self, auto& wire) { wire(self.session, self.isSameUser, self.address); }

  struct Answer {
    bool isMade = false;
    std::wstring text;  // the line to hand on, or why there is none

    static void layout(auto& self, auto& wire) { wire(self.isMade, self.text); }
  };
};

// The latest lines of the server's log that tell of a failure.
struct Records {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kRecords;

  int most = 0;

  static void layout(auto& self, auto& wire) { wire(self.most); }

  struct Answer {
    std::vector<std::wstring> lines;  // oldest first

    static void layout(auto& self, auto& wire) { wire.untilFalse(self.lines); }
  };
};

// A notice that the server keeps; names.h has the kinds and their values.
struct Notice {
  static constexpr Limit kValues{1000};  // a peer that claims more is no server

  int number = 0;  // begins with 1 in each server and rises by one
  std::wstring time, kind, line;
  std::vector<std::pair<std::wstring, std::wstring>> values;

  // Empty when it has none of that name; the last one when it has several.
  std::wstring value(const std::wstring& name) const;

  static void layout(auto& self, auto& wire) {
    wire(self.number, self.time, self.kind, self.line);
    wire.counted(self.values, kValues);
  }
};

// The notices after one, waiting for the first of them if need be.
struct Notices {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kNotices;
  static constexpr int kKept = 1000;  // by the server; older ones are not sent

  int after = -1;        // a number; -1 for none, only the latest number
  int milliseconds = 0;  // to wait, 0 to 5000

  static void layout(auto& self, auto& wire) { wire(self.after, self.milliseconds); }

  struct Answer {
    int latest = 0;               // the number of the latest notice; 0 before the first
    std::vector<Notice> notices;  // oldest first

    static void layout(auto& self, auto& wire) {
      wire(self.latest);
      wire.untilFalse(self.notices);
    }
  };
};

inline const ListedSession* ServerStatus::session(int number) const {
  const auto found = std::find_if(sessions.begin(), sessions.end(),
                                  [number](const ListedSession& session) { return session.number == number; });
  return found == sessions.end() ? nullptr : &*found;
}

inline std::wstring Notice::value(const std::wstring& name) const {
  const auto found =
      std::find_if(values.rbegin(), values.rend(), [&name](const auto& value) { return value.first == name; });
  return found == values.rend() ? std::wstring() : found->second;
}

}  // namespace protocol
