#pragma once

#include "util/mutex.h"

// The lock of the port list and of each port: a Mutex under the name that says so. FindPort hands a port out with its
// CriticalSection held, and the caller leaves it with unlock().
class CriticalSection : public Mutex {};
