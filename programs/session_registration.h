#pragma once

#include "corvane/class.h"

// The request by which a session's print client brings its printers to the application server. It goes from a
// component of class kSessionClientClass in the print client, standing directly on the connection, to one of class
// kSessionHostClass in the application server. The registration ends with the connection.
//
// Request kBringPrinters, values in this order:
//   int      session number, 1 or more
//   int      number of printers, then for each printer:
//     eight times: boolean, and only when it is true a text
//     boolean  flag
//     int      printer value: 1 raw data, 2 PostScript, 3 PDF
//     int      second value
//   class version map of the print client
//
// A name has at most 200 characters, each other text 1,024, and all texts together 4,096 and 192 more for each printer
// that the server allows a session (16,384 with its usual 64); past that the registration is refused.
//
// Reply:
//   boolean  accepted
//   text     only when refused: the reason, for a person
//   text     only when accepted: for each printer, in the order of the request, its name on this server
//
// Request kJobFailed, from the application server to the same component of the print client; no reply. It tells why a
// job for this print client has failed, as often as that happens while the registration lasts:
//   text     the client's own name of the printer
//   text     the document; empty when it is not known
//   text     the cause
//   text     what to do
//
// Request kPrinterRefused, the same way, no reply: a printer of this print client cannot be had on the server:
//   text     the client's own name of the printer
//   text     the cause
//   text     what to do
namespace programs {

inline constexpr const wchar_t* kSessionHostClass = L"Quillfern::NTR::SessionHost";
inline constexpr const wchar_t* kSessionClientClass = L"Quillfern::NTR::SessionClient";
inline constexpr const wchar_t* kPrintClientClass = L"Quillfern::NTR::PrintClient";
inline constexpr const wchar_t* kPrintServerClass = L"Quillfern::NTR::PrintServer";
inline constexpr const wchar_t* kPortMonitorClientClass = L"Quillfern::NTR::PortMonitorClient";
inline constexpr const wchar_t* kPortMonitorServerClass = L"Quillfern::NTR::PortMonitorServer";

inline constexpr CS_Version kProgramsVersion{4, 0, 1, 0};

inline constexpr int kBringPrinters = 20;
inline constexpr int kJobFailed = 21;
inline constexpr int kPrinterRefused = 22;

inline constexpr int kPrinterTexts = 8;
inline constexpr int kDriverText = 3;  // index of the driver name among the eight texts

}  // namespace programs
