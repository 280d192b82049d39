// libmpv, loaded when it is first needed: with the hundred libraries behind it, it takes 0.1 s and 45 MB, which a
// television without a viewer does not need.
#pragma once

#include <mpv/client.h>
#include <mpv/render.h>
#include <mpv/stream_cb.h>

#include <string>

#define MPV_FUNCTIONS(ROW)       \
  ROW(mpv_create)                \
  ROW(mpv_initialize)            \
  ROW(mpv_terminate_destroy)     \
  ROW(mpv_set_option_string)     \
  ROW(mpv_command_async)         \
  ROW(mpv_observe_property)      \
  ROW(mpv_set_property_async)    \
  ROW(mpv_error_string)          \
  ROW(mpv_request_log_messages)  \
  ROW(mpv_set_wakeup_callback)   \
  ROW(mpv_wait_event)            \
  ROW(mpv_stream_cb_add_ro)      \
  ROW(mpv_render_context_create) \
  ROW(mpv_render_context_free)   \
  ROW(mpv_render_context_render) \
  ROW(mpv_render_context_update) \
  ROW(mpv_render_context_set_update_callback)

struct MpvLibrary {
#define ROW(name) decltype(&::name) name = nullptr;
  MPV_FUNCTIONS(ROW)
#undef ROW
  std::string trouble;  // why it cannot be used; empty: it can
};

// Loads the library on the first call. Any thread.
const MpvLibrary& mpv_library();

// No player needs the library for a while: its code and constants, and those of the libraries behind it, no longer
// count as memory of this process. They come back from the system's cache when they are used. Any thread.
void library_rest();
