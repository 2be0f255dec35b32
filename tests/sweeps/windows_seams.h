#pragma once

#include <windows.h>

#include <cstdint>

// The seams at every Windows call that the folders from ports to monitor make, and at the network calls below them.
// Each reaches Windows as it is, except for what a test machine does not have:
//  - the queue: OpenPrinterW, GetJobW, SetJobA and ClosePrinter act on one printer that is always there;
//  - a client to impersonate, a user in front of message boxes, and time, which passes only when a test says so.
namespace windows_seams {

// To be called after each construction of ImportSeams, which undoes it at its end. The number is the port at which the
// application server is found; its reading does not fail, because a wrong port is dialled without end.
void install(std::uint16_t serverPort);

// The command of the last SetJobA that succeeded; 0 after forgetCommand().
DWORD lastQueueCommand();
void forgetCommand();

// How many message boxes came.
int messageBoxes();

// From now on, and until the seams end, conversions take no process of their own (quick_converter.h).
void convertQuickly();

// Lets time pass.
void advance(DWORD milliseconds);

}  // namespace windows_seams
