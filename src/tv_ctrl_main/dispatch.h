// Which handler serves which group.
#pragma once

#include "tvctl_common/handler.h"

// What a URI is good for, and what a person needs to know of it. Empty texts: there is nothing to say.
struct UriUse {
  Effect get;
  Effect set;
  bool notifies;       // some handler raises it
  const char* help;    // one sentence
  const char* unit;    // of the value
  const char* values;  // as RecordRow::values
};

UriUse tvc_uri_use(UINT16 ui2_id);

// The handler of a group; null where nothing serves it.
const Handler* tvc_handler(int group);
