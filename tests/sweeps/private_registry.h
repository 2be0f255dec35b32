#pragma once

#include <windows.h>

// For as long as this lives, what this process reads and writes below HKEY_LOCAL_MACHINE is a key of its own, empty at
// the start and gone at the end. Other test processes of the same Wine prefix have their own address of the server,
// their own ports and their own installation root meanwhile, and see nothing of this one's.
class PrivateRegistry {
 public:
  PrivateRegistry();
  ~PrivateRegistry();
  PrivateRegistry(const PrivateRegistry&) = delete;
  PrivateRegistry& operator=(const PrivateRegistry&) = delete;
};
