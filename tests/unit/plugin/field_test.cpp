// What a field row can say, each with a made-up record: when its member counts, what it stores, how it is rendered.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support.h"
#include "tv_ctrl_util/json_field.h"

namespace {

template <typename Record, std::size_t N>
int decode(const Field (&fields)[N], const char* parameter, Record& ret_record, UINT16 uri = 0) {
  const Json parsed = parse_json(parameter);
  EXPECT_TRUE(parsed) << parameter;
  return tvc_decode_fields(fields, kQuery, parsed.get(), &ret_record, "entry", uri);
}

template <std::size_t N>
std::string rendered(const Field (&fields)[N], const void* record) {
  JsonText json;
  tvc_write_object(json, fields, kResponse, record);
  EXPECT_TRUE(tvc_finish_text(json));
  const std::unique_ptr<char, decltype(&std::free)> owner(json.text, std::free);
  return {json.text, json.length};
}

// --- Whether a member was there, and members that exclude each other ---

struct Search {
  UINT32 mask;
  INT32 without_mask;
  char name[9];
  INT32 has_name;
  UINT32 event;
  UINT16 events;
};
constexpr Field kSearchFields[] = {
    {.key = "MASK", TVC_MEMBER(Search, mask), .use = kQuery, .missing = TVC_PLACE(Search, without_mask)},
    {.key = "NEW_NAME", TVC_MEMBER(Search, name), .use = kQuery, .found = TVC_PLACE(Search, has_name)},
    {.key = "NAME",
     TVC_MEMBER(Search, name),
     .use = kQuery,
     .found = TVC_PLACE(Search, has_name),
     .unless = "NEW_NAME"},
    {.key = "EVENT", TVC_MEMBER(Search, event), .use = kQuery, .found = TVC_PLACE(Search, events)},
};

TEST(Field, SaysWhetherItsMemberWasThere) {
  Search record = {};
  EXPECT_EQ(decode(kSearchFields, R"({"MASK":0,"NEW_NAME":"a","EVENT":7})", record), 0);
  EXPECT_EQ(record.without_mask, 0);
  EXPECT_EQ(record.has_name, 1);
  EXPECT_EQ(record.events, 1);
  EXPECT_EQ(record.event, 7u);
  std::memset(&record, 0x55, sizeof record);
  EXPECT_EQ(decode(kSearchFields, "{}", record), 0);
  EXPECT_EQ(record.without_mask, 1);
  EXPECT_EQ(record.has_name, 0);
  EXPECT_EQ(record.events, 0);
  EXPECT_EQ(record.event, 0x55555555u) << "a missing member leaves its field";
}

TEST(Field, ATextThatIsNoneIsMissing) {
  Search record = {};
  printed_by([&] { decode(kSearchFields, R"({"NEW_NAME":5})", record); });
  EXPECT_EQ(record.has_name, 0);
}

TEST(Field, CountsOnlyWithoutAnother) {
  Search record = {};
  decode(kSearchFields, R"({"NAME":"old","NEW_NAME":"new"})", record);
  EXPECT_STREQ(record.name, "new");
  EXPECT_EQ(record.has_name, 1);
  record = {};
  decode(kSearchFields, R"({"NAME":"old"})", record);
  EXPECT_STREQ(record.name, "old");
  EXPECT_EQ(record.has_name, 1);
}

// --- Names, and members that belong to one of them or to one URI ---

struct Player {
  INT32 operation;
  UINT32 start;
  INT32 window;
};
constexpr Field kPlayerFields[] = {
    {.key = "operator",
     TVC_NAMED(Player, operation),
     .use = kQuery,
     .text = "operation",
     .values = "1=Play\0"
               "12=timeSeek\0"
               "-3=off\0"},
    {.key = "start", TVC_MEMBER(Player, start), .use = kQuery, .unless = "operator"},
    {.key = "window", TVC_MEMBER(Player, window), .use = kQuery, .uri = 0x0D09},
};

TEST(Field, NameGivesItsNumberInAnyCase) {
  const struct {
    const char* parameter;
    INT32 number;
  } rows[] = {{R"({"operator":"Play"})", 1},    {R"({"operator":"PLAY"})", 1}, {R"({"operator":"TIMEseek"})", 12},
              {R"({"operator":"off"})", -3},    {R"({"operator":"flip"})", 0}, {R"({"operator":"Pla"})", 0},
              {R"({"operator":"Playing"})", 0}, {R"({"operator":""})", 0}};
  for (const auto& row : rows) {
    Player record = {.operation = 99, .start = 0, .window = 0};
    EXPECT_EQ(decode(kPlayerFields, row.parameter, record), 0);
    EXPECT_EQ(record.operation, row.number) << row.parameter;
  }
  Player record = {.operation = 99, .start = 0, .window = 0};
  decode(kPlayerFields, "{}", record);
  EXPECT_EQ(record.operation, 99);
  set_log_level(2);
  const std::string printed = printed_by([&] { decode(kPlayerFields, R"({"operator":"play"})", record); });
  set_log_level(0);
  EXPECT_TRUE(printed.ends_with("<entry> operation [play]: 1!\n")) << printed;
  set_log_level(2);
  EXPECT_TRUE(printed_by([&] { decode(kPlayerFields, "{}", record); }).ends_with("<entry> operation []: 1!\n"));
  set_log_level(0);
}

TEST(Field, IsReadOnlyWithoutTheTextThatExcludesIt) {
  for (const char* const operation : {R"("operator":"Play",)", R"("operator":"flip",)", R"("operator":"",)"}) {
    Player record = {};
    decode(kPlayerFields, ("{" + std::string(operation) + R"("start":1})").c_str(), record);
    EXPECT_EQ(record.start, 0u) << operation << ": an unknown operator is one all the same";
  }
  for (const char* const none : {"", R"("operator":1,)", R"("operator":null,)"}) {
    Player record = {};
    decode(kPlayerFields, ("{" + std::string(none) + R"("start":1})").c_str(), record);
    EXPECT_EQ(record.start, 1u) << none;
  }
}

TEST(Field, IsReadOnlyForItsUri) {
  Player record = {};
  decode(kPlayerFields, R"({"window":4})", record, 0x0D08);
  EXPECT_EQ(record.window, 0);
  decode(kPlayerFields, R"({"window":4})", record, 0x0D09);
  EXPECT_EQ(record.window, 4);
}

// --- Members that belong to one operation ---

struct Remote {
  INT32 operation;
  union {
    struct {
      UINT32 time;
      char note[8];
    } seek;
    char* picture;
    UINT8 bytes[16];
  } u;
};
constexpr char kRemoteOperations[] =
    "1=seek\0"
    "2=skip\0"
    "7=picture\0";
constexpr Field kRemoteOperationFields[] = {
    {.key = "time", TVC_MEMBER(Remote, u.seek.time), .use = kQuery | kResponse},
    {.key = "note", TVC_MEMBER(Remote, u.seek.note), .use = kQuery | kResponse},
    {.key = "time", TVC_MEMBER(Remote, u.bytes[4]), .use = kQuery | kResponse},
    {.key = "picture", TVC_MEMBER(Remote, u.picture), .use = kResponse},
    {.key = "none", TVC_MEMBER(Remote, u.bytes[15]), .use = kQuery | kResponse},
    {.key = "nameless", TVC_MEMBER(Remote, u.bytes[14]), .use = kQuery | kResponse},
};
constexpr UINT16 kRemoteOperationOfRow[] = {1, 1, 2, 7, 0, 300};
constexpr auto kRemoteCases = tvc_field_cases<kRemoteOperationOfRow>();
constexpr FieldChoice kRemoteChoice = {
    .selector = TVC_PLACE(Remote, operation), .key = "operation", .values = kRemoteOperations, .cases = kRemoteCases};
constexpr Field kRemoteFields[] = {
    {.key = "operation", TVC_NAMED(Remote, operation), .use = kQuery, .values = kRemoteOperations},
    {.kind = FieldKind::kMembers,
     .use = kQuery | kResponse,
     .fields = kRemoteOperationFields,
     .choice = &kRemoteChoice},
};

// Every byte of the union has this value.
Remote remote_of(INT32 operation, UINT8 byte) {
  Remote record = {};
  record.operation = operation;
  std::memset(&record.u, byte, sizeof record.u);
  return record;
}

// The union's bytes that a request with all members changes in a record whose bytes are all 0x55, by their offset.
std::vector<std::size_t> changed_by(const std::string& operation) {
  Remote record = remote_of(0, 0x55);
  decode(kRemoteFields,
         ("{" + operation + R"("time":1,"note":"abcdefghij","picture":"x","none":2,"nameless":3})").c_str(), record);
  std::vector<std::size_t> changed;
  for (std::size_t i = 0; i < sizeof record.u.bytes; ++i)
    if (record.u.bytes[i] != 0x55) changed.push_back(i);
  return changed;
}

TEST(Field, OfAnOperationIsReadForItAndLeavesTheBytesOfOthersAlone) {
  using Offsets = std::vector<std::size_t>;
  EXPECT_EQ(changed_by(R"("operation":"SEEK",)"), (Offsets{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}))
      << "seven characters; records come cleared, so that no end is written";
  EXPECT_EQ(changed_by(R"("operation":"skip",)"), Offsets{4});
  EXPECT_EQ(changed_by(R"("operation":"picture",)"), Offsets{}) << "it has no member that is read";
  EXPECT_EQ(changed_by(R"("operation":"no such name",)"), Offsets{15}) << "an unknown name is 0";
  EXPECT_EQ(changed_by(""), Offsets{15});
  Remote record = remote_of(300, 0x55);
  decode(kRemoteFields, R"({"none":2,"nameless":3,"time":1})", record);
  EXPECT_EQ(record.u.bytes[14], 3) << "the number counts, with or without a name";
  EXPECT_EQ(record.u.bytes[15], 0x55);
}

TEST(Field, OfAnOperationIsRenderedForItAlone) {
  Remote record = remote_of(1, 0);
  record.u.seek.time = 70000;
  std::strcpy(record.u.seek.note, "n");
  EXPECT_EQ(rendered(kRemoteFields, &record), R"({"time":70000,"note":"n"})");
  record.operation = 2;
  EXPECT_EQ(rendered(kRemoteFields, &record), R"({"time":110})") << "the letter n";
  record = remote_of(0, 9);
  EXPECT_EQ(rendered(kRemoteFields, &record), R"({"none":9})");
  record.operation = 300;
  EXPECT_EQ(rendered(kRemoteFields, &record), R"({"nameless":9})");
  for (const INT32 operation : {-1, 3, 300 - 65536, 1 + 65536}) {
    record.operation = operation;
    EXPECT_EQ(rendered(kRemoteFields, &record), "{}") << operation;
  }
}

// In the records of other operations, the bytes of the text's address are something else.
TEST(Field, ATextOfAnOperationIsShownAndFreedForItAlone) {
  const MemoryWatch memory;
  Remote record = remote_of(7, 0);
  record.u.picture = static_cast<char*>(std::calloc(1, 8));
  std::strcpy(record.u.picture, "png");
  EXPECT_EQ(rendered(kRemoteFields, &record), R"({"picture":"png"})");
  tvc_free_texts(kRemoteFields, &record);
  EXPECT_EQ(record.u.picture, nullptr);
  EXPECT_EQ(memory.live_blocks(), 0u);
  for (const INT32 operation : {0, 1, 2, 300}) {
    record = remote_of(operation, 0x55);
    tvc_free_texts(kRemoteFields, &record);
    EXPECT_TRUE(std::ranges::all_of(record.u.bytes, [](UINT8 byte) { return byte == 0x55; })) << operation;
  }
}

// --- Arrays ---

struct Filter {
  UINT8 category_count;
  UINT8 categories[3];
  UINT32 channel_count;
  INT32 channels_announced;
  UINT32 channels[2];
};
constexpr Field kFilterFields[] = {
    {.key = "CATEGORY_NUM", TVC_MEMBER(Filter, category_count), .use = kQuery},
    {.key = "CATEGORY",
     TVC_MEMBER(Filter, categories),
     .use = kQuery,
     .sets_count = true,
     .count = TVC_PLACE(Filter, category_count)},
    {.key = "CHANNEL_NUM", TVC_MEMBER(Filter, channels_announced), .use = kQuery},
    {.key = "CHANNEL_ID",
     TVC_MEMBER(Filter, channels),
     .use = kQuery,
     .count = TVC_PLACE(Filter, channels_announced),
     .text = "channel_id"},
};

TEST(Field, ArrayTakesWhatThereIsRoomFor) {
  Filter record = {};
  EXPECT_EQ(decode(kFilterFields,
                   R"({"CATEGORY_NUM":9,"CATEGORY":[1,258,3,4],"CHANNEL_NUM":9,)"
                   R"("CHANNEL_ID":[4294967295,2,3]})",
                   record),
            0);
  EXPECT_EQ(record.category_count, 3) << "becomes the number taken";
  EXPECT_EQ(record.categories[0], 1);
  EXPECT_EQ(record.categories[1], 2) << "cut to 8 bits";
  EXPECT_EQ(record.categories[2], 3);
  EXPECT_EQ(record.channels_announced, 9) << "stays, without sets_count";
  EXPECT_EQ(record.channels[0], 4294967295u);
  EXPECT_EQ(record.channels[1], 2u);
  record = {};
  EXPECT_EQ(decode(kFilterFields, R"({"CATEGORY_NUM":3,"CATEGORY":[5]})", record), 0);
  EXPECT_EQ(record.category_count, 1);
}

TEST(Field, ArrayIsNotReadWithoutACount) {
  Filter record = {};
  EXPECT_EQ(decode(kFilterFields, R"({"CATEGORY":[1],"CHANNEL_NUM":0,"CHANNEL_ID":"none"})", record), 0);
  EXPECT_EQ(record.categories[0], 0);
}

TEST(Field, AnnouncedArrayMustHaveElements) {
  const struct {
    const char* parameter;
    const char* message;
  } rows[] = {{R"({"CHANNEL_NUM":2,"CHANNEL_ID":7})", "<entry> CHANNEL_ID type is NOT array!\n"},
              {R"({"CHANNEL_NUM":2})", "<entry> CHANNEL_ID type is NOT array!\n"},
              {R"({"CHANNEL_NUM":2,"CHANNEL_ID":[]})", "<entry> array size is zero!\n"},
              {R"({"CATEGORY_NUM":3,"CATEGORY":[]})", "<entry> array size is zero!\n"}};
  for (const auto& row : rows) {
    Filter record = {};
    const std::string printed = printed_by([&] { EXPECT_EQ(decode(kFilterFields, row.parameter, record), -1); });
    EXPECT_EQ(printed, row.message) << row.parameter;
  }
}

TEST(Field, ArrayTracesItsElements) {
  set_log_level(5);
  Filter record = {};
  const std::string printed =
      printed_by([&] { decode(kFilterFields, R"({"CHANNEL_NUM":2,"CHANNEL_ID":[8,9]})", record); });
  set_log_level(0);
  EXPECT_TRUE(printed.ends_with("<entry> channel_id[0]: 8!\n<entry> channel_id[1]: 9!\n")) << printed;
}

// --- Values that are rendered ---

struct Shown {
  INT16 position;
  double size;
  INT32 levels[3];
  UINT16 ids[4];
  INT32 id_count;
  INT32 kind;
  char* text;
  char* picture;
};
bool is_picture(const void* record) { return static_cast<const Shown*>(record)->kind == 107; }
constexpr Field kShownFields[] = {
    {.key = "POSITION", TVC_MEMBER(Shown, position), .use = kResponse},
    {.key = "SIZE", TVC_MEMBER(Shown, size), .use = kResponse},
    {.key = "LEVELS", TVC_MEMBER(Shown, levels), .use = kResponse},
    {.key = "IDS", TVC_NUMBERS_16(Shown, ids), .use = kResponse, .count = TVC_PLACE(Shown, id_count)},
    {.key = "SECOND_ID", TVC_MEMBER(Shown, ids[1]), .use = kResponse},
    {.key = "TEXT", TVC_MEMBER(Shown, text), .use = kResponse, .text = ""},
    {.key = "PICTURE", TVC_MEMBER(Shown, picture), .use = kResponse, .when = is_picture},
};

TEST(Field, RendersNumbersOfItsKind) {
  Shown record = {.position = -192,
                  .size = 1.5,
                  .levels = {-1, 0, INT32_MAX},
                  .ids = {1, 65535, 3, 4},
                  .id_count = 2,
                  .kind = 0,
                  .text = nullptr,
                  .picture = nullptr};
  EXPECT_EQ(rendered(kShownFields, &record),
            R"({"POSITION":-192,"SIZE":1.5,"LEVELS":[-1,0,2147483647],"IDS":[1,65535],"SECOND_ID":65535,"TEXT":""})");
  for (const auto& [count, ids] : {std::pair{0, "[]"}, {-1, "[]"}, {9, "[1,65535,3,4]"}}) {
    record.id_count = count;
    EXPECT_NE(rendered(kShownFields, &record).find(std::string("\"IDS\":") + ids + ","), std::string::npos) << count;
  }
}

TEST(Field, RendersAndFreesTextsThatTheRecordOwns) {
  MemoryWatch memory;
  Shown record = {};
  record.kind = 107;
  EXPECT_NE(rendered(kShownFields, &record).find(R"("TEXT":"","PICTURE":null)"), std::string::npos);
  record.text = static_cast<char*>(std::calloc(1, 8));
  record.picture = static_cast<char*>(std::calloc(1, 8));
  std::strcpy(record.text, "a\"b");
  std::strcpy(record.picture, "png");
  EXPECT_NE(rendered(kShownFields, &record).find(R"("TEXT":"a\"b","PICTURE":"png")"), std::string::npos);
  tvc_free_texts(kShownFields, &record);
  EXPECT_EQ(record.text, nullptr);
  EXPECT_EQ(record.picture, nullptr);
}

TEST(Field, LeavesAnotherViewOfAUnionAlone) {
  Shown record = {};
  char other[] = "no block of malloc's";
  record.picture = other;
  tvc_free_texts(kShownFields, &record);
  EXPECT_EQ(record.picture, other);
}

}  // namespace
