// Multi-view group: a main and a sub video at once. It can only be set.
#include "tv_ctrl_util/log.h"
#include "tvapi/multiview.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

static UINT8 low_byte(INT32 value) { return static_cast<UINT8>(value); }

static VEXTVAPI_REGION_T region_of(const T_MULTIVIEW_PARAM& view) {
  return {.x = view.region.x, .y = view.region.y, .width = view.region.width, .height = view.region.height};
}

static INT32 set_audio_focus(const RecordRequest& request) {
  T_TEXT& focus = tvc_content<T_TEXT>(request);
  tvc_end_text(focus.value);
  return tvc_ignored(request, a_vextvapi_multiview_setAudioFocus(focus.value));
}

static INT32 set_tv_mode(const RecordRequest& request) {
  return a_vextvapi_multiview_setNewTvMode(low_byte(tvc_content<T_INTEGER>(request).value));
}

static INT32 change_source(const RecordRequest& request) {
  return a_vextvapi_multiview_setChgSource(low_byte(tvc_content<T_INTEGER>(request).value));
}

static INT32 start_main_video(const RecordRequest& request) {
  const T_MULTIVIEW_PARAM& view = tvc_content<T_MULTIVIEW_PARAM>(request);
  const VEXTVAPI_REGION_T region = region_of(view);
  return tvc_ignored(request, a_vextvapi_multiview_startMainVideo(low_byte(view.value), &region));
}

static INT32 start_sub_video(const RecordRequest& request) {
  const T_MULTIVIEW_PARAM& view = tvc_content<T_MULTIVIEW_PARAM>(request);
  const VEXTVAPI_REGION_T region = region_of(view);
  return tvc_ignored(request, a_vextvapi_multiview_startSubVideo(low_byte(view.value), &region));
}

static INT32 stop_main_video(const RecordRequest&) { return a_vextvapi_multiview_stopMainVideo(); }

static INT32 stop_sub_video(const RecordRequest&) { return a_vextvapi_multiview_stopSubVideo(); }

static INT32 set_display_region(const RecordRequest& request) {
  const T_MULTIVIEW_PARAM& view = tvc_content<T_MULTIVIEW_PARAM>(request);
  const T_REGION& region = view.region;
  return tvc_ignored(
      request, a_vextvapi_highlevel_set_displayregion(view.value, region.x, region.y, region.width, region.height));
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_AUDIO_FOCUS,
     .type = TYPE_TEXT,
     .set = set_audio_focus,
     .set_operation = "_tvc_multiview_set_audio_focus",
     .help = "Which picture is heard.",
     .values = "main\0"
               "sub\0"},
    {.record = TV_CTRL_RECID_SET_TV_MODE,
     .type = TYPE_INTEGER,
     .set = set_tv_mode,
     .help = "The mode of the set, in the platform's numbers.",
     .values = "0..255\0"},
    {.record = TV_CTRL_RECID_SET_CHANGE_SOURCE,
     .type = TYPE_INTEGER,
     .set = change_source,
     .help = "Announces a change of source, in the platform's numbers.",
     .values = "0..255\0"},
    {.record = TV_CTRL_RECID_START_MAIN_VIDEO,
     .type = TYPE_MULTIVIEW,
     .set = start_main_video,
     .set_operation = "_tvc_multiview_start_main_video",
     .set_needs = "MVIEW_REGION_W MVIEW_REGION_H",
     .help = "Starts the main video in a region of the screen; the low 8 bits of MVIEW_VALUE count."},
    {.record = TV_CTRL_RECID_START_SUB_VIDEO,
     .type = TYPE_MULTIVIEW,
     .set = start_sub_video,
     .set_operation = "_tvc_multiview_start_sub_video",
     .set_needs = "MVIEW_REGION_W MVIEW_REGION_H",
     .help = "Starts the sub video in a region of the screen; the low 8 bits of MVIEW_VALUE count."},
    {.record = TV_CTRL_RECID_STOP_MAIN_VIDEO,
     .type = TYPE_ACTION,
     .set = stop_main_video,
     .help = "Stops the main video."},
    {.record = TV_CTRL_RECID_STOP_SUB_VIDEO,
     .type = TYPE_ACTION,
     .set = stop_sub_video,
     .help = "Stops the sub video."},
    {.record = TV_CTRL_RECID_DISPLAY_REGION,
     .type = TYPE_MULTIVIEW,
     .set = set_display_region,
     .set_operation = "_tvc_multiview_set_display_region",
     .set_needs = "MVIEW_REGION_W MVIEW_REGION_H",
     .help = "Moves a picture to a region of the screen."},
};

constinit const Handler handler_MULTIVIEW = {.group = TV_CTRL_GRPID_MULTIVIEW,
                                             .records = tvc_records<kRows>(),
                                             .set_without_record = WithoutRecord::kRefusedUnlessAction};

INT32 tv_ctrl_get_multiview(UINT16, void*) { return handler_MULTIVIEW.get_default; }

INT32 tv_ctrl_set_multiview(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_MULTIVIEW, ui2_id, pv_content);
}
