// A set that searches for servers, and records the events that an application gets.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "rooms/home_network/home_network_test.h"
#include "rooms/home_network/parts.h"
#include "tests/unit/tv/support.h"

struct ServerEvent {
  INT32 type = 0;
  std::string name = {};
  INT32 id = 0;
  UINT32 arg1 = 0;
  UINT32 arg2 = 0;
};

struct ServerEvents {
  std::mutex lock;  // guards the list
  std::vector<ServerEvent> list;
};

inline ServerEvents& server_events() {
  static ServerEvents& events = *new ServerEvents;
  return events;
}

inline INT32 keep_server_event(INT32 type, void*, const char* name, INT32 id, UINT32 arg1, UINT32 arg2) {
  ServerEvents& events = server_events();
  const std::lock_guard guard(events.lock);
  events.list.push_back({type, name, id, arg1, arg2});
  return 0;
}

inline std::vector<ServerEvent> events_of(INT32 type) {
  ServerEvents& events = server_events();
  const std::lock_guard guard(events.lock);
  std::vector<ServerEvent> found;
  for (const ServerEvent& each : events.list)
    if (each.type == type) found.push_back(each);
  return found;
}

struct ServersTest : testing::Test {
  TvFolder folder;
  void SetUp() override {
    {
      const std::lock_guard guard(server_events().lock);
      server_events().list.clear();
    }
    ASSERT_EQ(tv_start(folder.path), "");
    ASSERT_EQ(a_vextvapi_cb_dms_detect_register_callback(keep_server_event, nullptr), 0);
  }
  void TearDown() override { dtv_tv_stop(); }

  static INT32 id_of(const std::string& udn) {
    for (const Server& each : servers_all())
      if (each.upnp.udn == udn && each.online) return each.id;
    return 0;
  }

  // Announces the server until the set has found it. Returns its number; 0: it was not found.
  static INT32 find(const FakeServer& server) {
    INT32 id = 0;
    eventually([&] {
      server.announce();
      return (id = id_of(server.udn)) != 0;
    });
    return id;
  }
};
