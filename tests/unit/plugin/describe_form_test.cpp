// The description of made-up types, with what few real rows have.
#include <cstdlib>
#include <memory>
#include <string>

#include "support.h"
#include "tv_ctrl_api/describe.h"

namespace {

std::string description(const ItemType& item) {
  JsonText json;
  tvc_describe_type(json, item);
  EXPECT_TRUE(tvc_finish_text(json));
  const std::unique_ptr<char, decltype(&std::free)> owner(json.text, std::free);
  return {json.text, json.length};
}

// --- Kinds ---

struct Kinds {
  INT16 small;
  double position;
  INT32 mode;
  UINT16 title[8];
  char* detail;
  INT32 count;
  INT32 numbers[4];
  UINT16 channels[6];
  uintptr_t address;
};
constexpr Field kKindsFields[] = {
    {.key = "SMALL", TVC_MEMBER(Kinds, small), .use = kResponse, .unit = "degree", .help = "angle"},
    {.key = "POSITION", TVC_MEMBER(Kinds, position), .use = kResponse},
    {.key = "MODE",
     TVC_NAMED(Kinds, mode),
     .use = kQuery | kResponse,
     .values = "1=NONE\0"
               "2=ALL\0"},
    {.key = "TITLE", TVC_MEMBER(Kinds, title), .use = kResponse},
    {.key = "DETAIL", TVC_MEMBER(Kinds, detail), .use = kResponse, .text = nullptr},
    {.key = "NUMBERS", TVC_MEMBER(Kinds, numbers), .use = kQuery | kResponse, .count = TVC_PLACE(Kinds, count)},
    {.key = "CHANNELS", TVC_NUMBERS_16(Kinds, channels), .use = kResponse},
    {.key = "ADDRESS", TVC_WORD(Kinds, address), .use = kResponse, .values = "0=none\0"},
};

TEST(DescribeForm, EveryKindHasTheNameOfItsRow) {
  EXPECT_EQ(description({.type = TYPE_EVENT_INFO, .record_size = sizeof(Kinds), .fields = kKindsFields}),
            R"({"query":[{"key":"MODE","kind":"text","values":[{"value":"NONE"},{"value":"ALL"}]},)"
            R"({"key":"NUMBERS","kind":"int32_array","count":4}],"set":null,)"
            R"("response":[{"key":"SMALL","kind":"int16","unit":"degree","help":"angle"},)"
            R"({"key":"POSITION","kind":"double"},)"
            R"({"key":"MODE","kind":"text","values":[{"value":"NONE"},{"value":"ALL"}]},)"
            R"({"key":"TITLE","kind":"text"},{"key":"DETAIL","kind":"text"},)"
            R"({"key":"NUMBERS","kind":"int32_array","count":4},{"key":"CHANNELS","kind":"uint16_array","count":6},)"
            R"({"key":"ADDRESS","kind":"uint64","values":[{"value":0,"help":"none"}]}],"notify":null})");
}

// --- Members beside "ITEMS", and a list in several forms ---

struct Child {
  INT32 number;
  char name[8];
};
struct Folder {
  INT32 kind;
  UINT16 count;
  Child children[3];
};
constexpr Field kFolderFields[] = {
    {.key = "KIND", TVC_MEMBER(Folder, kind), .use = kQuery | kRoot, .help = "what it holds"},
    {.key = "COUNT", TVC_MEMBER(Folder, count), .use = kRoot},
};
constexpr Field kChildFields[] = {{.key = "NO", TVC_MEMBER(Child, number)}, {.key = "NAME", TVC_MEMBER(Child, name)}};
constexpr Field kNumberFields[] = {{.key = "NO", TVC_MEMBER(Child, number)}};
constexpr Field kSummaryFields[] = {{.key = "SUMMARY", .text = "Folder"}};
constexpr ItemForm kFolderForms[] = {
    {.uri = 0x140C, .fields = kNumberFields, .list = {TVC_ENTRIES(Folder, children)}},
    {.when = [](const void* record) { return static_cast<const Folder*>(record)->kind == 6; },
     .fields = kChildFields,
     .list = {.count = TVC_PLACE(Folder, count), TVC_ENTRIES(Folder, children)}},
    {.fields = kSummaryFields},
};

TEST(DescribeForm, FormsAreOneListOfMembersAndRootMembersStandApart) {
  EXPECT_EQ(description(
                {.type = TYPE_DLNA_DMP, .record_size = sizeof(Folder), .fields = kFolderFields, .forms = kFolderForms}),
            R"({"query":[{"key":"KIND","kind":"int32","help":"what it holds"}],"set":null,)"
            R"("response":[{"key":"NO","kind":"int32"},{"key":"NAME","kind":"text","limit":7},)"
            R"({"key":"SUMMARY","kind":"constant","value":"Folder"}],)"
            R"("root":[{"key":"KIND","kind":"int32","help":"what it holds"},{"key":"COUNT","kind":"uint16"}],)"
            R"("notify":null})");
}

// --- One key in several rows ---

struct View {
  INT32 tag;
  INT32 number, other_number;
  char text[12];
};
constexpr bool is_number(const void* record) { return static_cast<const View*>(record)->tag == 1; }
constexpr bool is_text(const void* record) { return !is_number(record); }
constexpr Field kViewFields[] = {
    {.key = "TAG", TVC_MEMBER(View, tag), .use = kSet | kNotify},
    {.key = "VALUE", TVC_MEMBER(View, number), .use = kSet | kNotify, .when = is_number, .unless = "NAME"},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kSet | kNotify, .when = is_text},
};

TEST(DescribeForm, RowsOfOneKeyAreOneMember) {
  EXPECT_EQ(description({.type = TYPE_TEXT,
                         .record_size = sizeof(View),
                         .fields = kViewFields,
                         .notify = {.form = NotifyForm::kQueued, .bound = 1024}}),
            R"({"query":null,"set":{"request":"SET","fields":[{"key":"TAG","kind":"int32"},)"
            R"({"key":"VALUE","kind":"int32"}]},"response":null,)"
            R"("notify":{"form":"queued","member":"ITEMS","bound":1024,"fields":[{"key":"TAG","kind":"int32"},)"
            R"({"key":"VALUE","kind":"int32"}]}})");
}

constexpr Field kNumberForm[] = {{.key = "VALUE", TVC_MEMBER(View, number)}};
constexpr Field kTextForm[] = {{.key = "VALUE", TVC_MEMBER(View, text)}, {.key = "TAG", TVC_MEMBER(View, tag)}};
constexpr ItemForm kViewForms[] = {{.when = is_number, .fields = kNumberForm}, {.fields = kTextForm}};

TEST(DescribeForm, RowsOfOneKeyAndSeveralKindsAreAMemberEach) {
  EXPECT_EQ(description({.type = TYPE_TEXT, .record_size = sizeof(View), .forms = kViewForms}),
            R"({"query":null,"set":null,"response":[{"key":"VALUE","kind":"int32"},)"
            R"({"key":"VALUE","kind":"text","limit":11},{"key":"TAG","kind":"int32"}],"notify":null})");
}

// --- Members of one URI ---

constexpr UINT16 kVolumeUri = tvc_id(TV_CTRL_GRPID_VOLUME, TV_CTRL_RECID_VOL);
constexpr UINT16 kMuteUri = tvc_id(TV_CTRL_GRPID_VOLUME, TV_CTRL_RECID_VOL_MUTE);
constexpr Field kUriFields[] = {
    {.key = "TAG", TVC_MEMBER(View, tag), .use = kQuery, .help = "tag"},
    {.key = "VALUE", TVC_MEMBER(View, number), .use = kQuery, .uri = kVolumeUri, .unit = "s"},
    {.key = "TAG", TVC_MEMBER(View, other_number), .use = kQuery, .uri = kVolumeUri},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kQuery, .uri = kMuteUri},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kQuery, .uri = kMuteUri, .unless = "TAG"},
};

TEST(DescribeForm, MembersOfOneUriNameIt) {
  EXPECT_EQ(description({.type = TYPE_TEXT, .record_size = sizeof(View), .fields = kUriFields}),
            R"({"query":[{"key":"TAG","kind":"int32","help":"tag"},)"
            R"({"key":"VALUE","kind":"int32","uri":"/tv/cast/volume/volume","unit":"s"},)"
            R"({"key":"TAG","kind":"int32","uri":"/tv/cast/volume/volume"},)"
            R"({"key":"VALUE","kind":"int32","uri":"/tv/cast/volume/mute"}],)"
            R"("set":null,"response":null,"notify":null})");
}

// --- Members of one operation ---

constexpr char kOperations[] =
    "1=play\0"
    "12=timeSeek\0"
    "-3=off\0";
constexpr Field kOperationMembers[] = {
    {.key = "VALUE", TVC_MEMBER(View, number), .use = kQuery | kResponse, .unit = "s"},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kQuery},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kQuery, .unless = "TAG"},
    {.key = "VALUE", TVC_MEMBER(View, number), .use = kResponse},
    {.key = "VALUE", TVC_MEMBER(View, number), .use = kResponse},
};
constexpr UINT16 kOperationOfMember[] = {12, 1, 1, 0, 2};
constexpr auto kOperationCases = tvc_field_cases<kOperationOfMember>();
constexpr FieldChoice kOperationChoice = {
    .selector = TVC_PLACE(View, tag), .key = "operator", .values = kOperations, .cases = kOperationCases};
constexpr Field kOperationFields[] = {
    {.key = "operator", TVC_NAMED(View, tag), .use = kQuery, .values = kOperations},
    {.kind = FieldKind::kMembers, .use = kQuery | kResponse, .fields = kOperationMembers, .choice = &kOperationChoice},
    {.key = "VALUE", TVC_MEMBER(View, other_number), .use = kResponse},
};

// An operation is described by its name; by null where a request has none, by its number where no request can name it.
TEST(DescribeForm, MembersOfOneOperationNameIt) {
  EXPECT_EQ(description({.type = TYPE_TEXT, .record_size = sizeof(View), .fields = kOperationFields}),
            R"({"query":[{"key":"operator","kind":"text",)"
            R"("values":[{"value":"play"},{"value":"timeSeek"},{"value":"off"}]},)"
            R"({"key":"VALUE","kind":"int32","when":{"key":"operator","value":"timeSeek"},"unit":"s"},)"
            R"({"key":"VALUE","kind":"int32","when":{"key":"operator","value":"play"}}],"set":null,)"
            R"("response":[{"key":"VALUE","kind":"int32","when":{"key":"operator","value":"timeSeek"},"unit":"s"},)"
            R"({"key":"VALUE","kind":"int32","when":{"key":"operator","value":null}},)"
            R"({"key":"VALUE","kind":"int32","when":{"key":"operator","value":2}},)"
            R"({"key":"VALUE","kind":"int32"}],"notify":null})");
}

TEST(DescribeForm, ActionTakesItsWordAndNoFields) {
  EXPECT_EQ(description({.type = TYPE_ACTION}),
            R"({"query":null,"set":{"request":"ACTION","fields":[]},"response":null,"notify":null})");
}

}  // namespace
