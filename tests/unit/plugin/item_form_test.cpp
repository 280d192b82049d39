// The forms of a response, each with a made-up type; and what a request does with a type's record.
#include <cstdlib>
#include <cstring>
#include <string>

#include "support.h"
#include "tv_ctrl_api/item_types.h"
#include "tv_ctrl_api/response.h"

namespace {

std::string content(const ItemType& item, const void* record, UINT16 uri = 0) {
  JsonText json;
  tvc_open_object(json);
  tvc_write_content(json, item, uri, record);
  tvc_close_object(json);
  EXPECT_TRUE(tvc_finish_text(json));
  const std::unique_ptr<char, decltype(&std::free)> owner(json.text, std::free);
  return {json.text, json.length};
}

// --- A list inside a union, with members beside "ITEMS" ---

struct Category {
  UINT16 number;
  char name[8];
};
struct Lists {
  UINT16 id;
  UINT32 tag;
  union {
    struct {
      UINT16 count;
      Category entries[2];
    } categories;
    UINT32 other[9];
  } u;
};
constexpr Field kListsFields[] = {
    {.key = "ID", TVC_MEMBER(Lists, id), .use = kQuery | kRoot},
    {.key = "TAG", TVC_MEMBER(Lists, tag), .use = kRoot},
};
constexpr Field kCategoryFields[] = {
    {.key = "NO", TVC_MEMBER(Category, number)},
    {.key = "NAME", TVC_MEMBER(Category, name)},
};
constexpr ItemForm kListsForms[] = {
    {.when = [](const void* record) { return static_cast<const Lists*>(record)->tag == 11; },
     .fields = kCategoryFields,
     .list = {.count = TVC_PLACE(Lists, u.categories.count), TVC_ENTRIES(Lists, u.categories.entries)}}};
constexpr ItemType kListsType = {.type = TYPE_LOL_INFO,
                                 .record_size = sizeof(Lists),
                                 .error_word = "lol",
                                 .renderer = "_json_print_lol_info_type",
                                 .fields = kListsFields,
                                 .forms = kListsForms};

TEST(ItemForm, ListInAUnionIsShownWhereItIsTheView) {
  Lists record = {};
  record.id = 3;
  record.tag = 11;
  record.u.categories.count = 2;
  record.u.categories.entries[0] = {7, "Sport"};
  record.u.categories.entries[1] = {8, "News"};
  EXPECT_EQ(content(kListsType, &record),
            R"({"ID":3,"TAG":11,"ITEMS":[{"NO":7,"NAME":"Sport"},{"NO":8,"NAME":"News"}]})");
  record.u.categories.count = 25;
  EXPECT_EQ(content(kListsType, &record),
            R"({"ID":3,"TAG":11,"ITEMS":[{"NO":7,"NAME":"Sport"},{"NO":8,"NAME":"News"}]})");
  record.u.categories.count = 0;
  EXPECT_EQ(content(kListsType, &record), R"({"ID":3,"TAG":11,"ITEMS":[]})");
  record.u.categories.count = 2;
  record.tag = 12;
  EXPECT_EQ(content(kListsType, &record), R"({"ID":3,"TAG":12,"ITEMS":[]})");
}

// --- A filter, a form by the URI, one by the record, and one for all others ---

struct Child {
  INT32 device, object;
};
struct Folder {
  INT32 kind;
  Child children[3];
};
constexpr UINT16 kListingUri = 0x140C;
constexpr Field kChildFields[] = {
    {.key = "devId", TVC_MEMBER(Child, device)},
    {.key = "objectId", TVC_MEMBER(Child, object)},
};
constexpr Field kKindFields[] = {{.key = "kind", TVC_MEMBER(Folder, kind)}};
constexpr Field kSummaryFields[] = {{.key = "NAME", .text = "Folder"}};
constexpr ItemForm kFolderForms[] = {
    {.uri = kListingUri,
     .fields = kChildFields,
     .list = {TVC_ENTRIES(Folder, children), .shows =
                                                 [](const void* entry) {
                                                   const Child& child = *static_cast<const Child*>(entry);
                                                   return child.device != 0 && child.object != 0;
                                                 }}},
    {.when = [](const void* record) { return static_cast<const Folder*>(record)->kind == 6; }, .fields = kKindFields},
    {.fields = kSummaryFields},
};
constexpr ItemType kFolderType = {.type = TYPE_DLNA_DMP,
                                  .record_size = sizeof(Folder),
                                  .renderer = "_json_print_dlna_dmp_type",
                                  .forms = kFolderForms};

TEST(ItemForm, FirstThatFitsIsWritten) {
  const Folder record = {.kind = 6, .children = {{1, 2}, {3, 0}, {5, 6}}};
  EXPECT_EQ(content(kFolderType, &record, kListingUri),
            R"({"ITEMS":[{"devId":1,"objectId":2},{"devId":5,"objectId":6}]})");
  EXPECT_EQ(content(kFolderType, &record), R"({"ITEMS":[{"kind":6}]})");
  EXPECT_EQ(content(kFolderType, &record, kListingUri + 1), R"({"ITEMS":[{"kind":6}]})");
  const Folder other = {.kind = 1, .children = {}};
  EXPECT_EQ(content(kFolderType, &other), R"({"ITEMS":[{"NAME":"Folder"}]})");
}

TEST(ItemForm, TypeWithFormsHasAResponse) {
  EXPECT_TRUE(tvc_item_has(kFolderType, kResponse));
  EXPECT_FALSE(tvc_item_has(kFolderType, kQuery));
}

// --- Through the entry points ---

struct Event {
  INT32 count;
  INT32 operation;
  char* detail;
};
constexpr Field kEventFields[] = {
    {.key = "EVENT", TVC_MEMBER(Event, operation), .use = kQuery | kSet, .found = TVC_PLACE(Event, count)},
    {.key = "DETAIL", TVC_MEMBER(Event, detail), .use = kResponse, .text = ""},
};
constexpr ItemType kEventType = {
    .type = TYPE_EVENT_INFO,
    .record_size = sizeof(Event),
    .error_word = "event",
    .renderer = "_json_print_event_info_type",
    .fields = kEventFields,
    .has_response = [](const void* record) { return static_cast<const Event*>(record)->count != 0; }};

std::string get(const std::string& uri, const char* parameter, int expected) {
  char buffer[DTV_JSP_RESPONSE_MAX + 1] = {};
  EXPECT_EQ(a_dtv_jsp_get(uri.c_str(), parameter, buffer), expected);
  return buffer;
}

class ItemTypeRequest : public PluginTest {};

TEST_F(ItemTypeRequest, OwnedTextLivesUntilTheResponseIsMade) {
  make_up_type(kEventType);
  const std::string uri = made_up_uri(TYPE_EVENT_INFO);
  char* kept = nullptr;
  Event* seen = nullptr;
  get_handler = [&](UINT16, void* record) {
    seen = static_cast<Event*>(record);
    kept = seen->detail = static_cast<char*>(std::calloc(1, 16));
    std::strcpy(seen->detail, "long story");
    return 0;
  };
  EXPECT_EQ(get(uri, R"({"PARAMETER":{"REQUEST":"QUERY","EVENT":4}})", 0),
            R"({"URI":")" + uri + R"(","STATUS":0,"ITEMS":[{"DETAIL":"long story"}]})");
  EXPECT_NE(kept, nullptr);
  EXPECT_EQ(seen->detail, nullptr) << "freed, and its address cleared";
}

TEST_F(ItemTypeRequest, TypeMayRefuseAResponse) {
  make_up_type(kEventType);
  const std::string uri = made_up_uri(TYPE_EVENT_INFO);
  Event* seen = nullptr;
  get_handler = [&](UINT16, void* record) {
    seen = static_cast<Event*>(record);
    seen->detail = static_cast<char*>(std::calloc(1, 16));
    return 0;
  };
  EXPECT_EQ(get(uri, R"({"PARAMETER":{"REQUEST":"QUERY"}})", 0), "");
  EXPECT_EQ(seen->detail, nullptr) << "freed all the same";
}

struct Update {
  INT32 operation;
};
constexpr Field kUpdateFields[] = {{.key = "operation", TVC_MEMBER(Update, operation), .use = kSet}};
constexpr ItemType kUpdateType = {.type = TYPE_UPDATE_EPG,
                                  .also_set_as = TYPE_EVENT_INFO,
                                  .record_size = sizeof(Update),
                                  .error_word = "update epg",
                                  .fields = kUpdateFields};

TEST_F(ItemTypeRequest, SetIsCarriedOutAgainAsASecondType) {
  make_up_type(kEventType);
  make_up_type(kUpdateType);
  const std::string uri = made_up_uri(TYPE_UPDATE_EPG);
  int calls = 0;
  set_handler = [&](UINT16 id, void* record) {
    EXPECT_EQ(id, kMadeUpId);
    const Event& event = *static_cast<const Event*>(record);
    if (++calls == 1) {
      EXPECT_EQ(static_cast<const Update*>(record)->operation, 2);
      return 0;
    }
    EXPECT_EQ(event.count, 1) << "over the same record";
    EXPECT_EQ(event.operation, 9);
    return -1;
  };
  EXPECT_EQ(a_dtv_jsp_set(uri.c_str(), R"({"PARAMETER":{"REQUEST":"SET","operation":2,"EVENT":9}})"), -1);
  EXPECT_EQ(calls, 2);
}

}  // namespace
