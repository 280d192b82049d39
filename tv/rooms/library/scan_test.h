// A set that listens to its scans.
#pragma once

#include <algorithm>
#include <atomic>

#include "rooms/library/library_test.h"

struct Scanning : LibrarySet {
  inline static std::vector<INT32> heard = {};  // on the event thread; read after events_settle
  inline static std::atomic<int> begun = 0;
  static INT32 listen(INT32 type, void* tag) {
    EXPECT_EQ(tag, &heard);
    heard.push_back(type);
    if (type == VEXTVAPI_CB_SCAN_BEGUN) ++begun;
    return 0;
  }
  Scanning() {
    heard.clear();
    begun = 0;
    EXPECT_EQ(a_vextvapi_cb_usb_scan_status_register_callback(listen, &heard), 0);
  }
  // "name: why" of all that was left out, sorted.
  std::vector<std::string> problems() const {
    std::vector<std::string> found;
    const json::object answer = media({"problems"});
    for (const json::value& each : answer.at("problems").as_array()) {
      const std::string path(each.at("path").as_string());
      found.push_back(path.substr(std::min(path.size(), mount().size() + 1)) + ": " +
                      std::string(each.at("why").as_string()));
    }
    std::ranges::sort(found);
    return found;
  }
};

using Words = std::vector<std::string>;
