#pragma once

#include "programs/session_registration.h"

// The requests by which an administration tool asks the application server what it knows. They go from a component of
// class kAdministrationClientClass in the tool, standing directly on the connection, to one of class
// kAdministrationServerClass in the application server. All of them only look. Times are UTC as
// "2026-01-31T23:59:59Z".
//
// Request kStatusPage: int session and int printer at which to begin, both 0 for the first page. Reply: the values of
// kStatus with some of the sessions, in the order of their numbers; the first and the last one may have only some of
// their printers here. Then boolean "there is more", and only when it is true, int session and int printer at which the
// next page begins. A page is at most about a megabyte, whatever sessions bring along.
//
// Request kStatus, no values; answered for older tools, and refused when the answer would be too long. Reply:
//   text     version, such as "4.0.1.0"
//   int      process id
//   text     since when it runs
//   int      number of sessions, then for each, in the order of their numbers:
//     int      session number
//     boolean  its print client is connected
//     text     since when it is (not) connected
//     int      number of printers, then for each, in the order in which the client brings them:
//       text     its name on this server
//       eight times: boolean, and only when it is true a text (the first is the client's own name, the fourth the
//                driver name, the others in the order of programs/session_registration.h)
//       boolean  the client's default printer
//       int      printer value: 1 raw data, 2 PostScript, 3 PDF
//       int      second value
//
// Request kRecords: int how many at most. Reply, oldest first: as often as there are, true and a text (a line of the
// server's log that tells of a failure), then false.
//
// Request kNotices: int the number after which to begin (-1 for none, only the latest number), int how many
// milliseconds to wait for the first one after it (0 to 5000). Reply:
//   int      the number of the latest notice, 0 before the first; numbers rise by one and begin again with the server
//   as often as there are, oldest first: true, int number, text time, text kind, text line, int number of values, and
//   that many pairs of texts; then false
// The server keeps the latest kNoticesKept of them; older ones are not sent.
//
// A notice of kind "job" tells how a print job ended. Its values: "job" (the spooler's number), "printer" (the name on
// this server), "document", "process" (the spooler's process id), "result" ("delivered", "shown" for a text that was
// opened with an application in the session, or "failed"), "session" (its number, empty when it was not found out),
// "bytes" (sent to the client), and for a failed job "cause" and "remedy" (a sentence each).
//
// A notice of kind "printer" comes from an administration tool: a session's printer cannot be had on this machine. Its
// values: "printer" (the name on this server), "session", "process" (the tool's), "result" ("refused"), "cause" and
// "remedy". The session's print client is told as well.
namespace programs {

inline constexpr const wchar_t* kAdministrationClientClass = L"Quillfern::NTR::AdministrationClient";
inline constexpr const wchar_t* kAdministrationServerClass = L"Quillfern::NTR::AdministrationServer";

inline constexpr int kStatus = 30;
inline constexpr int kRecords = 31;
inline constexpr int kNotices = 32;
inline constexpr int kStatusPage = 33;

inline constexpr const wchar_t* kPrinterNotice = L"printer";

inline constexpr int kNoticesKept = 1000;

}  // namespace programs
