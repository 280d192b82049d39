// Response texts: {"URI", "STATUS", "ITEMS"}.
#pragma once

#include <cjson/cJSON.h>

#include <mutex>

#include "tv_ctrl_main.h"

// Held while a response or a notification is rendered. Taken inside the request lock, never the other way round.
extern std::mutex mutex_send;

// The text of the last rendering, for the thread that holds the request lock; empty (and null) when there is none.
// The text stays the renderer's and lives until the next rendering; its owner may cut it.
extern char* _ps_send_buff;
extern int _z_send_buff_len;

// Renders a record as the response to `uri`. Types without a renderer, and records that are null, give the "none"
// response: status 0 and one empty item, whatever status is passed.
void tv_ctrl_response_get(const char* uri, UINT8 type, const void* pv_content, INT32 status);

// Told of the outcome of every set, so that a response could be made in one place; sets have none, so it does nothing.
void tv_ctrl_response_set(UINT8 type, const cJSON* pt_param, INT32 status);
