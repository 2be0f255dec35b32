#pragma once

#include "corvane/components/class.h"

// The names that the print system's processes know each other's parts by.
//
// The classes of their components. Each pair stands at the two ends of one conversation; the requests of
// the first are in print_job.h, of the second in port_monitor.h, of the third in session.h, of the fourth in
// administration.h and of the last in invitation.h.
namespace protocol {

inline constexpr const wchar_t* kPrintServerClass = L"Quillfern::NTR::PrintServer";  // in the port monitor
inline constexpr const wchar_t* kPrintClientClass = L"Quillfern::NTR::PrintClient";  // in the print client

inline constexpr const wchar_t* kPortMonitorServerClass = L"Quillfern::NTR::PortMonitorServer";  // in the port monitor
inline constexpr const wchar_t* kPortMonitorClientClass = L"Quillfern::NTR::PortMonitorClient";  // in aps

inline constexpr const wchar_t* kSessionClientClass = L"Quillfern::NTR::SessionClient";  // in the print client
inline constexpr const wchar_t* kSessionHostClass = L"Quillfern::NTR::SessionHost";      // in aps

inline constexpr const wchar_t* kAdministrationClientClass = L"Quillfern::NTR::AdministrationClient";  // in mgprintmon
inline constexpr const wchar_t* kAdministrationServerClass = L"Quillfern::NTR::AdministrationServer";  // in aps

inline constexpr const wchar_t* kInvitationGuestClass = L"Quillfern::NTR::InvitationGuest";  // in the print client
inline constexpr const wchar_t* kInvitationHostClass = L"Quillfern::NTR::InvitationHost";    // in aps

// Of all these classes: the version of the whole project, from CMakeLists.txt.
inline constexpr CS_Version kVersion{MG_VERSION_NUMBERS};

// The kinds of the notices that a program monitor passes on (corvane/records/program_monitor.h) and the application
// server keeps for an administration tool. The session's print client is told about one that reports a failure.
//
// How a print job ended. Its values: "job" (the spooler's number), "printer" (the name on the server), "document",
// "process" (the spooler's process id), "user" (who prints; empty when the system does not tell), "result"
// ("delivered", "shown" for a text that was opened with an application in the session, or "failed"), "session" (its
// number, empty when it was not found out), "bytes" (sent to the client), and for a failed job "cause" and "remedy" (a
// sentence each). "user", whose job it is, and where the spooler knows them "pages" are the last ones.
inline constexpr const wchar_t* kJobNotice = L"job";
// From an administration tool: a session's printer cannot be had on this machine. Its values: "printer" (the name on
// the server), "session", "process" (the tool's), "result" ("refused"), "cause" and "remedy".
inline constexpr const wchar_t* kPrinterNotice = L"printer";
// From a session's print client: what has become of a job that it has taken (session.h). Its values: "job" (the
// spooler's number), "printer" (the name on the server), "document", "session", "state" (a word of kPaperStates), and
// "cause" and "remedy" (a sentence each) where there is something to say. It may come before the notice of how the same
// job ended for the port monitor. The spooler's process is not known: jobs are told apart by printer and number.
inline constexpr const wchar_t* kPaperNotice = L"paper";
// From the application server: what becomes of a job that it holds for a print client that is away. Its values: "job"
// (the spooler's number), "printer" (the name on the server), "document", "session", "state" ("held", also where it
// waits for something else than its print client, "delivered", "failed" or "canceled"), and "cause" and "remedy" (a
// sentence each) where there is something to say.
inline constexpr const wchar_t* kHeldNotice = L"held";

}  // namespace protocol
