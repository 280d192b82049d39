// Listener buffers: one entry per subscribed URI, with its number of subscriptions and at most one pending text.
#pragma once

#include <pthread.h>

#include "tv_ctrl_util/json_writer.h"
#include "tvapi/types.h"

// A read-write lock for std::lock_guard and std::shared_lock. A waiting writer goes first: otherwise a host that
// fetches all the time would keep the platform's threads, which write, from ever getting the lock.
struct RwLock {
  pthread_rwlock_t rwlock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
  void lock() { pthread_rwlock_wrlock(&rwlock); }
  bool try_lock() { return pthread_rwlock_trywrlock(&rwlock) == 0; }
  void unlock() { pthread_rwlock_unlock(&rwlock); }
  void lock_shared() { pthread_rwlock_rdlock(&rwlock); }
  void unlock_shared() { pthread_rwlock_unlock(&rwlock); }
};

struct TV_CTRL_NOTIFY_BUFFER_T {
  INT32 num;      // number of subscriptions
  char uri[256];  // the URI, cut to 255 characters
  // The pending text, owned by the entry. `text` is null when nothing is pending; the other members are then not valid.
  JsonText buffer;
  struct {
    TV_CTRL_NOTIFY_BUFFER_T* pt_next;
    TV_CTRL_NOTIFY_BUFFER_T** pt_prev;  // the pointer to this entry, in the entry before it or in the list's head
  } t_link;
};

// Guards the list, the lifetime of its entries and their pending texts. Delivery writes a text under the write lock. A
// fetch takes a text out of its entry under the read lock, atomically: of two threads that fetch at once, one gets it.
// Taken after mutex_send.
extern RwLock t_nfy_rw_lock;

// Returns the entry of a URI, or null when nobody is subscribed. The caller holds the lock.
TV_CTRL_NOTIFY_BUFFER_T* _jsp_get_uri_from_slist(const char* uri);

// Frees every entry. The caller holds the write lock.
void _jsp_empty_slist();
