#include "tvctl_common/channel_record.h"

#include <string.h>

#include "tv_ctrl_util/log.h"
#include "tv_ctrl_util/text.h"
#include "tvapi/config.h"

// --- Numbers in a channel's identifier ---

static UINT32 major_number(UINT32 channel_id) { return channel_id >> 18; }

static bool has_long_numbers(UINT32 channel_id) { return (channel_id & SVL_CHANNEL_ID_LONG_NUMBERS) != 0; }

static UINT32 analog_major_number(UINT32 channel_id) {
  const bool is_viewers = (channel_id & SVL_CHANNEL_ID_VIEWERS_NUMBER) != 0;
  return has_long_numbers(channel_id) && !is_viewers ? channel_id >> 24 : major_number(channel_id);
}

static UINT32 atsc_minor_number(UINT32 channel_id) {
  return channel_id >> 8 & (has_long_numbers(channel_id) ? 0xFFFF : 0x3FF);
}

static INT32 isdb_major_number(UINT32 channel_id) { return static_cast<INT32>(channel_id >> 18 & 0xFF); }

static INT32 isdb_minor_number(UINT32 channel_id) { return static_cast<INT32>(channel_id >> 8 & 0xFF); }

// --- Facts ---

// 0 where type and medium of a channel do not belong together.
static UINT32 frequency_of(UINT8 broadcast_type, const TSL_REC_T& tsl) {
  const UINT8 medium = tsl.brdcst_medium;
  switch (broadcast_type) {
    case SVL_BRDCST_TYPE_ANALOG:
      return medium >= TSL_BRDCST_MEDIUM_ANA_TERRESTRIAL && medium <= TSL_BRDCST_MEDIUM_ANA_SATELLITE ? tsl.frequency
                                                                                                      : 0;
    case SVL_BRDCST_TYPE_DVB:
      return medium >= TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL && medium <= TSL_BRDCST_MEDIUM_DIG_SATELLITE ? tsl.frequency
                                                                                                      : 0;
    case SVL_BRDCST_TYPE_UNKNOWN:
    case SVL_BRDCST_TYPE_ATSC:
      return tsl.frequency;
    default:
      return 0;
  }
}

// Whether the viewer wants logos; also where the platform does not say.
static bool shows_logos() {
  INT32 status = 0;
  const INT32 ret = a_vextvapi_config_get_value(VEXTVAPI_CONFIG_EVERY_INPUT, "g_misc__ch_logos_status", &status);
  return tvc_failed(ret, "_get_channel_logo_status") || status != 0;
}

static void fill_base(UINT16 svl_id, const SVL_REC_T& svl, const TSL_REC_T* tsl, T_BASE_CHANNEL_INFO& ret_base) {
  const SVL_REC_HDR_T& header = svl.t_rec_hdr;
  ret_base.brdcst_type = header.e_brdcst_type;
  ret_base.brdcst_medium = tsl ? tsl->brdcst_medium : UINT8{0};
  ret_base.service_type = header.e_serv_type;
  ret_base.svl_id = svl_id;
  ret_base.svl_rec_id = svl.ui2_svl_rec_id;
  ret_base.channel_id = header.ui4_channel_id;
  ret_base.nw_mask = header.ui4_nw_mask;
  tvc_copy_text(ret_base.service_name, header.ac_name);
  ret_base.frequency = tsl ? frequency_of(header.e_brdcst_type, *tsl) : 0;
  const UINT8* const logo = header.aui1_custom_data;
  ret_base.ch_logo_id = shows_logos() ? static_cast<UINT32>(logo[0] | logo[1] << 8) : 0;
}

static void fill_dvb(UINT32 channel_id, const SVL_DVB_T& dvb, T_DVB_CHANNEL_INFO& ret_dvb) {
  ret_dvb.ci_tune_service = dvb.b_ci_tune_service;
  ret_dvb.barker_mask = (dvb.ui4_linkage_descr_mask & SVL_LINKAGE_BARKER) != 0;
  ret_dvb.minor_num = 0;
  ret_dvb.major_num = major_number(channel_id);
  ret_dvb.category_mask = dvb.ui4_category_mask;
  tvc_copy_text(ret_dvb.short_name, dvb.s_svc_name);
  ret_dvb.b_hbbtv_off = dvb.b_hbbtv_off;
}

INT32 tvc_format_channel(UINT16 svl_id, const SVL_REC_T& svl, const TSL_REC_T* tsl, T_CHANNEL_INFO& ret_channel) {
  fill_base(svl_id, svl, tsl, ret_channel.t_base_ch_info);
  const UINT32 channel_id = svl.t_rec_hdr.ui4_channel_id;
  switch (svl.t_rec_hdr.e_brdcst_type) {
    case SVL_BRDCST_TYPE_ANALOG:
      ret_channel.t_analog_ch_info.major_num = static_cast<INT32>(analog_major_number(channel_id));
      break;
    case SVL_BRDCST_TYPE_DVB:
      fill_dvb(channel_id, svl.t_dvb, ret_channel.t_dvb_ch_info);
      break;
    case SVL_BRDCST_TYPE_ISDB:
      ret_channel.t_isdb_ch_info.major_num = isdb_major_number(channel_id);
      ret_channel.t_isdb_ch_info.minor_num = isdb_minor_number(channel_id);
      break;
    case SVL_BRDCST_TYPE_UNKNOWN:
    case SVL_BRDCST_TYPE_ATSC:
      ret_channel.t_atsc_ch_info.major_num = analog_major_number(channel_id);
      ret_channel.t_atsc_ch_info.minor_num = atsc_minor_number(channel_id);
      break;
    default:
      break;
  }
  return VEXTVCTRLR_OK;
}
