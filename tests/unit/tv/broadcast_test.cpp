// Registering callbacks for events of channels and the guide.
#include "tvapi/broadcast.h"

#include "support.h"
#include "tvapi/channel.h"
#include "tvapi/guide.h"

namespace {

INT32 on_event(INT32, void*, void*, void*, void*, void*) { return 0; }
INT32 on_time(INT32, void*, UINT32) { return 0; }

TEST(TvBroadcast, CallbacksAreAcceptedWithoutAMessage) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(a_vextvapi_channellist_register_callback(on_event, nullptr), 0);
  EXPECT_EQ(a_vextvapi_broadcast_register_callback(on_event, nullptr), 0);
  EXPECT_EQ(a_vextvapi_event_register_callback(on_event, nullptr), 0);
  EXPECT_EQ(a_vextvapi_time_register_dt_event_callback(on_time, nullptr), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(TvBroadcast, ANullCallbackIsRefused) {
  EXPECT_EQ(a_vextvapi_channellist_register_callback(nullptr, nullptr), -1);
  EXPECT_EQ(a_vextvapi_broadcast_register_callback(nullptr, nullptr), -1);
  EXPECT_EQ(a_vextvapi_event_register_callback(nullptr, nullptr), -1);
  EXPECT_EQ(a_vextvapi_time_register_dt_event_callback(nullptr, nullptr), -1);
}

}  // namespace
