// The functions of the content browser group's rows, which tvc_cbrowser.cpp lists.
#pragma once

#include "tvctl_common/handler.h"

// A media player: cbrowser_playback.cpp
INT32 tvc_player_create(const RecordRequest& request);
INT32 tvc_player_destroy(const RecordRequest& request);
INT32 tvc_player_operate(const RecordRequest& request);

// The image viewer: cbrowser_image.cpp
INT32 tvc_image_init(const RecordRequest& request);
INT32 tvc_image_deinit(const RecordRequest& request);
INT32 tvc_image_make_thumbnail(const RecordRequest& request);
INT32 tvc_image_open(const RecordRequest& request);
INT32 tvc_image_close(const RecordRequest& request);
INT32 tvc_image_operate(const RecordRequest& request);
