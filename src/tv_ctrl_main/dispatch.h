// Routes requests to the handlers, and says what each URI is good for.
#pragma once

#include "tvctl_common/handler.h"

// What requests to a URI do, and what an application developer needs to know of it. Texts without content are empty.
struct UriUse {
  Effect get;
  Effect set;
  bool notifies;          // true: a handler raises the event
  const char* get_needs;  // as RecordRow::get_needs
  const char* set_needs;  // as RecordRow::set_needs
  const char* help;       // one sentence
  const char* unit;       // of the value
  UINT8 limit;            // as RecordRow::limit
  const char* values;     // as RecordRow::values
};

// Returns the use of an identifier's URI.
UriUse tvc_uri_use(UINT16 ui2_id);

// Returns the handler of a group; null for a group that no handler serves.
const Handler* tvc_handler(int group);
