// Listener buffers: one entry per subscribed URI, with a count and at most one pending notification text.
#pragma once

#include <pthread.h>

#include "tv_ctrl_util/json_writer.h"
#include "tvapi/types.h"

// A read-write lock for std::lock_guard and std::shared_lock. A waiting writer goes first: hosts that fetch without a
// pause would otherwise hold up the platform's threads.
struct RwLock {
  pthread_rwlock_t rwlock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
  void lock() { pthread_rwlock_wrlock(&rwlock); }
  bool try_lock() { return pthread_rwlock_trywrlock(&rwlock) == 0; }
  void unlock() { pthread_rwlock_unlock(&rwlock); }
  void lock_shared() { pthread_rwlock_rdlock(&rwlock); }
  void unlock_shared() { pthread_rwlock_unlock(&rwlock); }
};

struct TV_CTRL_NOTIFY_BUFFER_T {
  INT32 num;      // subscriptions
  char uri[256];  // at most 255 characters are kept
  // The pending text, owned by the entry. Its `text` is null when nothing is pending; the rest then means nothing.
  JsonText buffer;
  struct {
    TV_CTRL_NOTIFY_BUFFER_T* pt_next;
    TV_CTRL_NOTIFY_BUFFER_T** pt_prev;  // where the entry before, or the head, points at this one
  } t_link;
};

// Guards the list, every entry's lifetime and its pending text, which is written under the write lock. Two threads may
// fetch at once under the read lock: they take the text out of its entry atomically, and one of them gets it. Taken
// after mutex_send.
extern RwLock t_nfy_rw_lock;

// The entry of a URI, or null. The caller holds the lock.
TV_CTRL_NOTIFY_BUFFER_T* _jsp_get_uri_from_slist(const char* uri);

// Frees every entry. The caller holds the write lock.
void _jsp_empty_slist();
