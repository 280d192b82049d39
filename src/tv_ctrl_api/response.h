// Response texts: {"URI", "STATUS", "ITEMS"}.
#pragma once

#include <cjson/cJSON.h>

#include <mutex>

#include "tv_ctrl_main.h"

// Held while a response or a notification is rendered. Taken after mutex_recv, the request lock, and never before it.
extern std::mutex mutex_send;

// The response text of the last rendering and its length in bytes; null and 0 when there is none. Only the thread that
// holds the request lock reads them. The next rendering frees the text.
extern char* _ps_send_buff;
extern int _z_send_buff_len;

// Renders a record as the response to `uri`. For a null record, or a type that shows nothing in responses, the response
// has status 0 and one empty item, whatever `status` is.
void tv_ctrl_response_get(const char* uri, UINT8 type, const void* pv_content, INT32 status);

// Receives the status of a set, and of each step of a set that has two. pt_param: null when nothing was parsed. Does
// nothing: sets have no response.
void tv_ctrl_response_set(UINT8 type, const cJSON* pt_param, INT32 status);
