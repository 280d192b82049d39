// The functions of the channel group's rows, which tvc_channel_info.cpp lists.
#pragma once

#include "tvctl_common/handler.h"

// A service list: channel_list.cpp
INT32 tvc_channel_find(const RecordRequest& request);
INT32 tvc_channel_previous(const RecordRequest& request);
INT32 tvc_channel_next(const RecordRequest& request);
INT32 tvc_channel_current(const RecordRequest& request);
INT32 tvc_channel_by_index(const RecordRequest& request);
INT32 tvc_channel_index(const RecordRequest& request);
INT32 tvc_channel_count(const RecordRequest& request);

// Changes of its channels: channel_edit.cpp
INT32 tvc_channel_set_mask(const RecordRequest& request);
INT32 tvc_channel_skip(const RecordRequest& request);
INT32 tvc_channel_cancel_skip(const RecordRequest& request);
INT32 tvc_channel_block(const RecordRequest& request);
INT32 tvc_channel_cancel_block(const RecordRequest& request);
INT32 tvc_channel_swap(const RecordRequest& request);
INT32 tvc_channel_edit(const RecordRequest& request);

// The one channel list: channel_ocl.cpp
INT32 tvc_ocl_find(const RecordRequest& request);
INT32 tvc_ocl_previous(const RecordRequest& request);
INT32 tvc_ocl_next(const RecordRequest& request);
INT32 tvc_ocl_first(const RecordRequest& request);
INT32 tvc_ocl_by_index(const RecordRequest& request);
INT32 tvc_ocl_index(const RecordRequest& request);
INT32 tvc_ocl_nearest_index(const RecordRequest& request);
INT32 tvc_ocl_count(const RecordRequest& request);

// Favourites of a service list, and of the one channel list: channel_favourites.cpp
INT32 tvc_favourite_add(const RecordRequest& request);
INT32 tvc_favourite_delete(const RecordRequest& request);
INT32 tvc_favourite_add_all(const RecordRequest& request);
INT32 tvc_favourite_delete_all(const RecordRequest& request);
INT32 tvc_favourite_move(const RecordRequest& request);
INT32 tvc_favourite_swap(const RecordRequest& request);
INT32 tvc_favourite_count(const RecordRequest& request);
INT32 tvc_favourite_by_index(const RecordRequest& request);
INT32 tvc_favourite_index(const RecordRequest& request);
INT32 tvc_ocl_favourite_add(const RecordRequest& request);
INT32 tvc_ocl_favourite_delete(const RecordRequest& request);
INT32 tvc_ocl_favourite_add_all(const RecordRequest& request);
INT32 tvc_ocl_favourite_delete_all(const RecordRequest& request);
INT32 tvc_ocl_favourite_move(const RecordRequest& request);
INT32 tvc_ocl_favourite_count(const RecordRequest& request);
INT32 tvc_ocl_favourite_by_index(const RecordRequest& request);
INT32 tvc_ocl_favourite_index(const RecordRequest& request);

// channel_satellite.cpp, channel_category.cpp and channel_logo.cpp
INT32 tvc_satellite_count(const RecordRequest& request);
INT32 tvc_satellite_by_index(const RecordRequest& request);
INT32 tvc_category_list(const RecordRequest& request);
INT32 tvc_logo_path(const RecordRequest& request);
INT32 tvc_logo_update(const RecordRequest& request);
