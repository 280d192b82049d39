// The image viewer. The platform has one image player. The plugin does not check the order of requests.
#include "tvapi/image.h"
#include "tvctl_common/cbrowser_rows.h"
#include "tvctl_common/record.h"

// Returns a platform's result as it is. Logs it where it is not 0, which is a failure.
static INT32 passed_on(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  if (ret != 0) tvc_log_fail(request.operation, line, ret);
  return ret;
}

INT32 tvc_image_init(const RecordRequest& request) { return passed_on(request, a_vextvapi_img_playback_initRes()); }

INT32 tvc_image_deinit(const RecordRequest& request) { return passed_on(request, a_vextvapi_img_playback_deinitRes()); }

INT32 tvc_image_close(const RecordRequest& request) { return passed_on(request, a_vextvapi_img_playback_close()); }

INT32 tvc_image_make_thumbnail(const RecordRequest& request) {
  T_CBROWSER_IMG& image = tvc_content<T_CBROWSER_IMG>(request);
  tvc_end_text(image.path);
  if (!image.path[0] || image.width < 1 || image.height < 1) return VEXTVCTRLR_INV_ARG;
  const INT32 ret =
      a_vextvapi_img_playback_getThumbnail_path(image.path, image.width, image.height, image.thumbnailPath);
  tvc_end_text(image.thumbnailPath);
  return passed_on(request, ret);
}

// A picture that cannot be decoded is closed again, and what closing returns is the result: applications rely on it.
INT32 tvc_image_open(const RecordRequest& request) {
  T_CBROWSER_IMG& image = tvc_content<T_CBROWSER_IMG>(request);
  tvc_end_text(image.path);
  if (!image.path[0]) return VEXTVCTRLR_INV_ARG;
  if (const INT32 ret = a_vextvapi_img_playback_open(image.path, 0, 0); ret != 0) return passed_on(request, ret);
  const INT32 ret = a_vextvapi_img_playback_decode();
  if (passed_on(request, ret) == 0) return VEXTVCTRLR_OK;
  return passed_on(request, a_vextvapi_img_playback_close());
}

INT32 tvc_image_operate(const RecordRequest& request) {
  const T_CBROWSER_IMG& image = tvc_content<T_CBROWSER_IMG>(request);
  switch (image.img_operator) {
    case CBROWSER_IMG_OPERATOR_DISPLAY:
      return passed_on(request, a_vextvapi_img_playback_display());
    case CBROWSER_IMG_OPERATOR_TFX_EFFECT_PLAY:
      return passed_on(request, a_vextvapi_img_playback_tfxPlay(image.effect));
    case CBROWSER_IMG_OPERATOR_TFX_EFFECT_STOP:
      return passed_on(request, a_vextvapi_img_playback_tfxStop());
    case CBROWSER_IMG_OPERATOR_ROTATE:
      return passed_on(request, a_vextvapi_img_playback_rotate(image.rotate));
    case CBROWSER_IMG_OPERATOR_ZOOM:
      return passed_on(request, a_vextvapi_img_playback_zoom(static_cast<UINT16>(image.zoom)));
    default:
      return VEXTVCTRLR_NOT_IMPLEMENT;
  }
}
