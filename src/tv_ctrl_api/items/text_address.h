// Members of notifications that are the address of a text in some events, and a number in others.
#pragma once

#include "tv_ctrl_util/json_writer.h"
#include "tv_ctrl_util/log.h"

struct AddressLog {
  const char* operation;
  const char* label;    // logged before the text
  const char* missing;  // logged for a null address
};

// Writes the text at an address, or 0 for a null address. The caller of
// tv_ctrl_notify_content owns the text, which must stay valid until that call returns.
inline void render_text_at(JsonText& json, intptr_t address, const AddressLog& log) {
  const char* const text = reinterpret_cast<const char*>(address);
  if (!text) {
    TVC_LOG_AS(kLogTrace, log.operation, "%s\n", log.missing);
    return tvc_write_integer(json, 0);
  }
  TVC_LOG_AS(kLogTrace, log.operation, "%s%s\n", log.label, text);
  tvc_write_text(json, text);
}
