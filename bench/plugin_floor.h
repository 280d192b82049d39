// The floors: the least work with which the plugin's operations could be done. They read the request once from front to
// back, clear the record, call the platform as the plugin does, and write the same text with code made for it, under
// one lock.
#pragma once

#include "tv_ctrl_main.h"
#include "tvapi/all.h"

inline constexpr const char* kVolume = "/tv/cast/volume/volume";
inline constexpr const char* kVolumeEvent = "/tv/ws/notify/volume_ctrl";
inline constexpr const char* kNumber = "/tv/config/value_number";
inline constexpr const char* kText = "/tv/config/language_string";
inline constexpr const char* kPlayerEvent = "/tv/ws/notify/cbrowser_playback";
inline constexpr const char* kServerEvent = "/tv/ws/notify/dlna_dms";
inline constexpr const char* kChannel = "/tv/channelinfo/current_channel_info";
inline constexpr const char* kEvents = "/tv/eventinfo/channel_with_event_ids";
inline constexpr const char* kChannelEvent = "/tv/ws/notify/channel_info";
inline constexpr const char* kGetRequest = R"({"PARAMETER":{"REQUEST":"GET"}})";
inline constexpr const char* kSetRequest = R"({"PARAMETER":{"REQUEST":"MODIFY","VALUE":23}})";
inline constexpr const char* kNumberRequest = R"({"PARAMETER":{"REQUEST":"QUERY","cfgId":"g_audio__balance"}})";
inline constexpr const char* kTextRequest = R"({"PARAMETER":{"REQUEST":"QUERY","langId":"IDS_VOLUME"}})";
inline constexpr const char* kChannelRequest = R"({"PARAMETER":{"REQUEST":"QUERY","SVL_ID":1}})";
inline constexpr const char* kEventsRequest =
    R"({"PARAMETER":{"REQUEST":"QUERY","CH_ID":66048,"START_TIME":1700000000,"DURATION":86400}})";
inline constexpr const char* kPlayback = "/tv/cbrowser/playback_get_info";
inline constexpr const char* kPlaybackRequest =
    R"({"PARAMETER":{"REQUEST":"QUERY","handle":7,"operator":"getmediainfo"}})";
inline constexpr const char* kThumbnailRequest =
    R"({"PARAMETER":{"REQUEST":"QUERY","handle":7,"operator":"getthumbnaildata"}})";
inline constexpr const char* kMediaList = "/tv/cbrowser/get_info";
inline constexpr const char* kMediaListRequest =
    R"({"PARAMETER":{"REQUEST":"QUERY","PATH":"/mnt/usb/sda1/Music","TYPE":2,"INDEX":0,"COUNT":24}})";
inline constexpr int kAppended = 8;  // notifications that are raised in a row behind a pending one

inline constexpr UINT16 kListed = 64;  // events that a response lists; with the longest titles it is the longest of all

// The host's buffer; one byte more than is written, so that it ends as a text.
extern char host_buffer[DTV_JSP_RESPONSE_MAX + 1];

// Makes the compiler assume that the memory is read.
inline void keep(void* memory) { asm volatile("" : : "r"(memory) : "memory"); }

void floor_get_plain();
void floor_get_request();
void floor_get_number();
void floor_get_text();
void floor_get_channel();
void floor_get_events();
void floor_get_media_info();
void floor_get_media_list();
void floor_get_thumbnail();
void floor_set();
void floor_notify_single();
void floor_notify_queued();
void floor_fetch();
void floor_notify_and_fetch();
void floor_start_queue();
void floor_append();
void floor_start_channels();
void floor_append_channels();
