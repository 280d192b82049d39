#include "tv_ctrl_api/listener.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "vex_tv_ctrl/status.h"

constinit RwLock t_nfy_rw_lock;

static struct { TV_CTRL_NOTIFY_BUFFER_T* pt_head; } _tv_ctrl_notify_buffer;

TV_CTRL_NOTIFY_BUFFER_T* _jsp_get_uri_from_slist(const char* uri) {
  if (!uri || !*uri) return nullptr;
  TV_CTRL_NOTIFY_BUFFER_T* entry = _tv_ctrl_notify_buffer.pt_head;
  while (entry && strcmp(entry->uri, uri) != 0) entry = entry->t_link.pt_next;
  return entry;
}

// Takes an entry out of the list and frees it. The caller holds the write lock.
static void free_entry(TV_CTRL_NOTIFY_BUFFER_T* entry) {
  *entry->t_link.pt_prev = entry->t_link.pt_next;
  if (entry->t_link.pt_next) entry->t_link.pt_next->t_link.pt_prev = entry->t_link.pt_prev;
  free(entry->buffer.text);
  free(entry);
}

void _jsp_empty_slist() {
  for (auto* entry = _tv_ctrl_notify_buffer.pt_head; entry;) free_entry(std::exchange(entry, entry->t_link.pt_next));
}

// Logs every entry. The caller holds the write lock.
static void _jsp_dump_buffer_in_slist() {
  if (!_tv_ctrl_notify_buffer.pt_head || vex_tvc_debug_level() < kLogValue) return;
  TVC_LOG(kLogValue, "BEGIN DUMP ------  !!! \r\n");
  for (const auto* entry = _tv_ctrl_notify_buffer.pt_head; entry; entry = entry->t_link.pt_next) {
    if (entry->buffer.text)
      TVC_LOG(kLogValue, "uri: [%s], stack count [%d], buffer: [%s]\r\n", entry->uri, entry->num, entry->buffer.text);
    else
      TVC_LOG(kLogValue, "uri: [%s], stack count [%d], buffer is empty\r\n", entry->uri, entry->num);
  }
  TVC_LOG(kLogValue, "END DUMP ------ !!! \r\n");
}

static INT32 _jsp_add_uri_into_slist(const char* ps_uri) {
  if (!ps_uri) {
    TVC_LOG(kLogError, "ps_uri is null!!!\n");
    return VEXTVCTRLR_FAIL;
  }
  const std::lock_guard guard(t_nfy_rw_lock);
  if (!*ps_uri) return VEXTVCTRLR_OK;
  if (TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(ps_uri)) {
    ++entry->num;
    TVC_LOG(kLogTrace, "exist entry for url [%s], stack count [%d]\n", ps_uri, entry->num);
    return VEXTVCTRLR_OK;
  }
  auto* const entry = static_cast<TV_CTRL_NOTIFY_BUFFER_T*>(calloc(1, sizeof(TV_CTRL_NOTIFY_BUFFER_T)));
  if (!entry) return VEXTVCTRLR_OK;  // not reported: the URI just gets no notifications
  entry->num = 1;
  tvc_copy_text(entry->uri, ps_uri);
  TVC_LOG(kLogTrace, "insert new entry for url [%s]\n", ps_uri);
  entry->t_link.pt_next = _tv_ctrl_notify_buffer.pt_head;
  entry->t_link.pt_prev = &_tv_ctrl_notify_buffer.pt_head;
  if (entry->t_link.pt_next) entry->t_link.pt_next->t_link.pt_prev = &entry->t_link.pt_next;
  _tv_ctrl_notify_buffer.pt_head = entry;
  _jsp_dump_buffer_in_slist();
  return VEXTVCTRLR_OK;
}

static INT32 _jsp_remove_uri_from_slist(const char* ps_uri) {
  if (!ps_uri) {
    TVC_LOG(kLogError, "ps_uri is null!!!\n");
    return VEXTVCTRLR_FAIL;
  }
  const std::lock_guard guard(t_nfy_rw_lock);
  if (!*ps_uri || !_tv_ctrl_notify_buffer.pt_head) return VEXTVCTRLR_OK;
  _jsp_dump_buffer_in_slist();
  TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(ps_uri);
  if (!entry) return VEXTVCTRLR_OK;
  TVC_LOG(kLogTrace, "remove entry for url [%s], stack count [%d]\n", ps_uri, entry->num);
  if (entry->num < 2)
    free_entry(entry);
  else
    --entry->num;
  return VEXTVCTRLR_OK;
}

int32_t a_dtv_jsp_add_listener_buffer(const char* ps_uri) { return _jsp_add_uri_into_slist(ps_uri); }

int32_t a_dtv_jsp_remove_listener_buffer(const char* ps_uri) { return _jsp_remove_uri_from_slist(ps_uri); }

int32_t a_dtv_jsp_get_listener_buffer(const char* ps_uri, void* pv_buffer, int32_t buffer_len) {
  TVC_LOG(kLogCall, "call %s.\n", __func__);
  if (!ps_uri || !pv_buffer || buffer_len < 1) return VEXTVCTRLR_FAIL;
  const std::shared_lock guard(t_nfy_rw_lock);
  TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(ps_uri);
  if (!entry) return VEXTVCTRLR_FAIL;
  char* const text = std::atomic_ref(entry->buffer.text).exchange(nullptr);
  if (!text) {
    TVC_LOG(kLogCall, "nfy buff is empty!\n");
    return VEXTVCTRLR_OK;
  }
  memcpy(pv_buffer, text, std::min(entry->buffer.length, static_cast<std::size_t>(buffer_len)));
  free(text);
  return VEXTVCTRLR_OK;
}
