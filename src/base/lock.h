// Holds a mutex until the end of a scope.
#ifndef TARVIO_SRC_BASE_LOCK_H
#define TARVIO_SRC_BASE_LOCK_H

#include <pthread.h>

namespace tarvio {

class Lock {
 public:
  explicit Lock(pthread_mutex_t& mutex) noexcept : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace tarvio

#endif
