// Item types of the media library and the image viewer.
#include "tv_ctrl_api/item_types.h"

static constexpr FieldUse kRequest = kQuery | kSet;

// --- The media library ---

static constexpr char kMediaTypes[] =
    "0=none\0"
    "1=photo\0"
    "2=music\0"
    "3=video\0"
    "4=folder\0"
    "5=playlist\0"
    "6=shop mode\0";

#define LIBRARY(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_CBROWSER, member), __VA_ARGS__ }
#define ENTRY(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_MEDIA_INFO, member), __VA_ARGS__ }

static constexpr Field kLibraryFields[] = {
    LIBRARY("PATH", path, .use = kRequest, .help = "path of a folder or a file"),
    LIBRARY("TYPE", type, .use = kRequest, .values = kMediaTypes, .help = "kind of media"),
    LIBRARY("SORT", sort, .use = kRequest, .help = "order, in the platform's numbers"),
    LIBRARY("INDEX", index, .use = kRequest, .help = "first entry, from 0"),
    LIBRARY("COUNT", count, .use = kRequest, .help = "number of entries; a list has 24 at most"),
    LIBRARY("RESERVED", reserved, .use = kRequest, .help = "second path, or the name of an entry of a top list"),
};

// The one item of a result that is no list.
static constexpr Field kSummaryFields[] = {
    {.key = "NAME", .text = "Content Browser", .help = "display name"},
    LIBRARY("PATH", path, .help = "path of the folder or the file"),
    LIBRARY("COUNT", count, .help = "number of entries"),
    LIBRARY("INDEX", index, .help = "first entry, from 0"),
    LIBRARY("TYPE", type, .values = kMediaTypes, .help = "kind of media"),
};

static constexpr Field kDateFields[] = {
    {.key = "YEAR", TVC_MEMBER(T_DATE_TIME, iyear), .help = "year"},
    {.key = "MONTH", TVC_MEMBER(T_DATE_TIME, imonth), .help = "month, from 1"},
    {.key = "DAY", TVC_MEMBER(T_DATE_TIME, iday), .help = "day, from 1"},
    {.key = "HOUR", TVC_MEMBER(T_DATE_TIME, ihour), .help = "hour"},
    {.key = "MINUTE", TVC_MEMBER(T_DATE_TIME, iminute), .help = "minute"},
    {.key = "SECOND", TVC_MEMBER(T_DATE_TIME, isecond), .help = "second"},
};

#define FOLDER_FIELDS                                                                  \
  ENTRY("MEDIA_TYPE", media_type, .values = kMediaTypes, .help = "kind of the entry"), \
      ENTRY("MEDIA_PATH", media_path, .help = "path of the entry")
#define FILE_FIELDS                                                          \
  FOLDER_FIELDS, ENTRY("RECID", recid, .help = "identifier in the library"), \
      ENTRY("FAVOURITE", favourite, .help = "1: marked as a favourite"),     \
      ENTRY("DATE", date, .fields = kDateFields, .help = "date of the file")

static constexpr Field kFolderFields[] = {FOLDER_FIELDS};

static constexpr Field kFileFields[] = {FILE_FIELDS};

static constexpr Field kPhotoFields[] = {
    FILE_FIELDS,
    ENTRY("WIDTH", u.photo_info.width, .unit = "pixel", .help = "width"),
    ENTRY("HEIGHT", u.photo_info.height, .unit = "pixel", .help = "height"),
    ENTRY("SIZE", u.photo_info.size, .help = "size of the file"),
};

static constexpr Field kMusicFields[] = {
    FILE_FIELDS,
    ENTRY("TRACK", u.music_info.track, .help = "track"),
    ENTRY("TITLE", u.music_info.title, .help = "title"),
    ENTRY("ARTIST", u.music_info.artist, .help = "artist"),
    ENTRY("ALBUM", u.music_info.album, .help = "album"),
    ENTRY("GENER", u.music_info.genre, .help = "genre"),
    ENTRY("DURATION", u.music_info.duration, .help = "duration"),
};

static constexpr Field kVideoFields[] = {
    FILE_FIELDS,
    ENTRY("TITLE", u.video_info.title, .help = "title"),
    ENTRY("YEAR", u.video_info.year, .help = "year"),
    ENTRY("DURATION", u.video_info.duration, .help = "duration"),
    ENTRY("SIZE", u.video_info.size, .help = "size of the file"),
};

static constexpr Field kPlaylistFields[] = {
    FILE_FIELDS,
    ENTRY("TITLE", u.playlist_info.title, .help = "title"),
    ENTRY("YEAR", u.playlist_info.artist, .help = "the artist; applications rely on this key"),
    ENTRY("DURATION", u.playlist_info.duration, .help = "duration"),
};

static bool is_list(const T_CBROWSER& library) { return library.count > 0 && library.media_info[0].media_path[0]; }

static bool is_list(const void* record) { return is_list(*static_cast<const T_CBROWSER*>(record)); }

// The kind that the request asked for decides, not the kind of each entry.
template <E_MEDIA_TYPE Type>
static bool is_list_of(const void* record) {
  const T_CBROWSER& library = *static_cast<const T_CBROWSER*>(record);
  return library.type == Type && is_list(library);
}

static constexpr EntryList kEntries = {.count = TVC_PLACE(T_CBROWSER, count), TVC_ENTRIES(T_CBROWSER, media_info)};

static constexpr ItemForm kLibraryForms[] = {
    {.when = is_list_of<MEDIA_TYPE_PHOTO>, .fields = kPhotoFields, .list = kEntries},
    {.when = is_list_of<MEDIA_TYPE_MUSIC>, .fields = kMusicFields, .list = kEntries},
    {.when = is_list_of<MEDIA_TYPE_VIDEO>, .fields = kVideoFields, .list = kEntries},
    {.when = is_list_of<MEDIA_TYPE_FOLDER>, .fields = kFolderFields, .list = kEntries},
    {.when = is_list_of<MEDIA_TYPE_PLAYLIST>, .fields = kPlaylistFields, .list = kEntries},
    {.when = is_list, .fields = kFileFields, .list = kEntries},
    {.fields = kSummaryFields},
};

constexpr ItemType item_CBROWSER = {.type = TYPE_CBROWSER,
                                    .record_size = sizeof(T_CBROWSER),
                                    .allocated_size = sizeof(T_CBROWSER),
                                    .error_word = "cbrowser",
                                    .renderer = "_json_print_cbrowser_type",
                                    .fields = kLibraryFields,
                                    .forms = kLibraryForms};

// --- The image viewer ---

#define IMAGE(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(T_CBROWSER_IMG, member), __VA_ARGS__ }

static constexpr Field kImageFields[] = {
    {.key = "NAME", .use = kResponse, .text = "Content Browser Image", .help = "display name"},
    IMAGE("path", path, .use = kRequest, .help = "path of the picture"),
    {.key = "operator",
     TVC_NAMED(T_CBROWSER_IMG, img_operator),
     .use = kRequest,
     .text = "operator",
     .values = "1=Display\0"
               "2=Tfx_Effect_Play\0"
               "3=Tfx_Effect_Stop\0"
               "10=Rotate\0"
               "11=Zoom\0",
     .help = "what is done with the picture"},
    IMAGE("rotate", rotate, .use = kRequest, .help = "rotation, in the platform's numbers"),
    IMAGE("zoom", zoom, .use = kRequest, .values = "0..65535\0", .help = "zoom, in the platform's numbers"),
    IMAGE("effect", effect, .use = kRequest, .help = "effect, in the platform's numbers"),
    IMAGE("width", width, .use = kRequest, .unit = "pixel", .help = "width of the thumbnail"),
    IMAGE("height", height, .use = kRequest, .unit = "pixel", .help = "height of the thumbnail"),
    IMAGE("thumbnailPath", thumbnailPath, .use = kResponse, .help = "path of the thumbnail"),
};

constexpr ItemType item_CBROWSER_IMG = {.type = TYPE_CBROWSER_IMG,
                                        .record_size = sizeof(T_CBROWSER_IMG),
                                        .allocated_size = sizeof(T_CBROWSER_IMG),
                                        .decoder = "_unpack_json_cbrowser_img",
                                        .error_word = "cbrowser image",
                                        .renderer = "_json_print_cbrowser_img_type",
                                        .fields = kImageFields};
