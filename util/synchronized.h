#pragma once

#include "util/mutex.h"

// Holds a lock for the rest of the scope that it is declared in; an exception that leaves the scope gives it back.
// The lock must outlive the guard. A guard belongs to the thread that made it.
class Synchronized {
 public:
  explicit Synchronized(Mutex& mutex) : m_mutex(&mutex) { m_mutex->lock(); }
  virtual ~Synchronized() { m_mutex->unlock(); }
  Synchronized(const Synchronized&) = delete;
  Synchronized& operator=(const Synchronized&) = delete;

 private:
  Mutex* m_mutex;
};
