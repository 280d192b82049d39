// Item types of input sources, and of two pictures at once.
#include "tv_ctrl_api/item_types.h"

static constexpr Field kInputSrcFields[] = {
    {.key = "INDEX", TVC_MEMBER(T_INPUT_SRC, idx), .use = kQuery | kSet | kResponse, .help = "input source, from 0"},
    {.key = "ALIAS_NAME",
     TVC_MEMBER(T_INPUT_SRC, alias_name),
     .use = kQuery | kSet | kResponse,
     .help = "the viewer's name for it"},
    {.key = "DEVICE_TYPE",
     TVC_MEMBER(T_INPUT_SRC, dev_type),
     .use = kQuery | kSet | kResponse,
     .values = "0..255\0",
     .help = "label of what is connected, as an index"},
};

constexpr ItemType item_INPUT_SRC = {.type = TYPE_INPUT_SRC,
                                     .record_size = sizeof(T_INPUT_SRC),
                                     .allocated_size = sizeof(T_INPUT_SRC),
                                     .error_word = "input source",
                                     .renderer = "_json_print_input_source_type",
                                     .fields = kInputSrcFields};

#define DEVICE(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_INPUT_DEV_INFO, dev_info.member), .use = kResponse, __VA_ARGS__ }

static constexpr Field kInputDevInfoFields[] = {
    {.key = "E_LOGICADR", TVC_MEMBER(T_INPUT_DEV_INFO, e_la), .use = kQuery, .help = "logical address on the CEC bus"},
    DEVICE("s_dev_name", s_dev_name, .help = "name of the device"),
    DEVICE("s_hdmi_port", s_hdmi_port, .help = "input that it is on"),
    DEVICE("s_osd_name", s_osd_name, .help = "name that the device gives itself"),
    DEVICE("b_amp_connected", b_amp_connected, .help = "1: there is an amplifier"),
    DEVICE("e_la", e_la, .help = "logical address"),
    DEVICE("ui2_pa", ui2_pa, .help = "physical address, a digit in each 4 bits"),
    DEVICE("dev_type", dev_type, .help = "kind of device"),
    DEVICE("ui1_dev_vndr_id", ui1_dev_vndr_id, .help = "vendor identifier, three bytes"),
};

constexpr ItemType item_INPUT_DEV_INFO = {.type = TYPE_INPUT_DEV_INFO,
                                          .record_size = sizeof(T_INPUT_DEV_INFO),
                                          .allocated_size = sizeof(T_VALUE),
                                          .renderer = "_json_print_input_device_info",
                                          .fields = kInputDevInfoFields};

#define VIEW(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_MULTIVIEW_PARAM, member), .use = kSet, __VA_ARGS__ }

static constexpr Field kMultiviewFields[] = {
    VIEW("MVIEW_VALUE", value, .help = "picture to start or move, in the platform's numbers"),
    VIEW("MVIEW_REGION_X", region.x, .unit = "pixel", .help = "left edge"),
    VIEW("MVIEW_REGION_Y", region.y, .unit = "pixel", .help = "upper edge"),
    VIEW("MVIEW_REGION_W", region.width, .unit = "pixel", .help = "width"),
    VIEW("MVIEW_REGION_H", region.height, .unit = "pixel", .help = "height"),
};

constexpr ItemType item_MULTIVIEW = {.type = TYPE_MULTIVIEW,
                                     .record_size = sizeof(T_MULTIVIEW_PARAM),
                                     .allocated_size = sizeof(T_MULTIVIEW_PARAM),
                                     .error_word = "multi-view",
                                     .fields = kMultiviewFields};
