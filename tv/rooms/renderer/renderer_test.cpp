// The renderer as controllers and applications have it: descriptions, actions, requests, reports, facts, instances.
#include "rooms/renderer/renderer_test.h"

#include <atomic>
#include <set>
#include <thread>

#include "rooms/renderer/services.h"
#include "rooms/screen/http_test.h"

namespace {

// ---- Descriptions ----

// The texts of all elements of that name, in order.
std::vector<std::string> elements(const HttpAnswer& document, const std::string& name) {
  std::vector<std::string> texts;
  EXPECT_TRUE(xml_read(document.body(), {.begin = [](int, std::string_view, const XmlAttributes&) {},
                                         .end =
                                             [&](int, std::string_view each, const std::string& text) {
                                               if (each == name) texts.push_back(text);
                                             }}))
      << document.text;
  return texts;
}

TEST_F(TvRenderer, DescribesADeviceWithThreeServices) {
  begin();
  const HttpAnswer description = exchange(place, "GET", "/description.xml");
  EXPECT_EQ(description.status, 200);
  EXPECT_EQ(description.element("deviceType"), "urn:schemas-upnp-org:device:MediaRenderer:1");
  EXPECT_EQ(description.element("friendlyName"), "Living room");
  EXPECT_TRUE(description.element("UDN").starts_with("uuid:"));
  EXPECT_EQ(elements(description, "serviceType"),
            (std::vector<std::string>{"urn:schemas-upnp-org:service:AVTransport:1",
                                      "urn:schemas-upnp-org:service:RenderingControl:1",
                                      "urn:schemas-upnp-org:service:ConnectionManager:1"}));
}

TEST_F(TvRenderer, DescribesTheRequiredActionsAndAVariableForEachArgument) {
  const std::map<std::string, std::set<std::string>> required = {
      {"AVTransport",
       {"SetAVTransportURI", "GetMediaInfo", "GetTransportInfo", "GetPositionInfo", "GetDeviceCapabilities",
        "GetTransportSettings", "Stop", "Play", "Seek", "Next", "Previous"}},
      {"RenderingControl", {"ListPresets", "SelectPreset"}},
      {"ConnectionManager", {"GetProtocolInfo", "GetCurrentConnectionIDs", "GetCurrentConnectionInfo"}}};
  begin();
  const HttpAnswer description = exchange(place, "GET", "/description.xml");
  const std::vector<std::string> paths = elements(description, "SCPDURL");
  ASSERT_EQ(paths.size(), required.size());
  for (const std::string& path : paths) {
    const HttpAnswer document = exchange(place, "GET", path);
    ASSERT_EQ(document.status, 200) << path;
    std::set<std::string> actions, variables, related;
    std::string parent;
    EXPECT_TRUE(xml_read(document.body(), {.begin =
                                               [&](int, std::string_view name, const XmlAttributes&) {
                                                 if (name == "action" || name == "stateVariable" || name == "argument")
                                                   parent = name;
                                               },
                                           .end =
                                               [&](int, std::string_view name, const std::string& text) {
                                                 if (name == "name" && parent == "action") actions.insert(text);
                                                 if (name == "name" && parent == "stateVariable")
                                                   variables.insert(text);
                                                 if (name == "relatedStateVariable") related.insert(text);
                                               }}));
    const std::string service = path.substr(1, path.find('.') - 1);
    for (const std::string& action : required.at(service)) EXPECT_TRUE(actions.contains(action)) << action;
    EXPECT_FALSE(related.empty());
    for (const std::string& variable : related) EXPECT_TRUE(variables.contains(variable)) << variable;
  }
}

// ---- Actions ----

struct ActionCase {
  const char* service;
  const char* action;
  Words arguments;
  int error;
};

const std::pair<std::string, std::string> kInstance = {"InstanceID", "0"};

// The cases of an item that is loaded and playing.
std::vector<ActionCase> cases() {
  const auto address = [](const std::string& url, const std::string& metadata = "") {
    return Words{kInstance, {"CurrentURI", url}, {"CurrentURIMetaData", metadata}};
  };
  const auto seek = [](const char* unit, const char* target) {
    return Words{kInstance, {"Unit", unit}, {"Target", target}};
  };
  const std::string photo =
      "<DIDL-Lite><item><res protocolInfo=\"http-get:*:text/plain:*\">http://127.0.0.1/a</res>"
      "</item></DIDL-Lite>";
  return {
      {"AVTransport", "GetMediaInfo", {kInstance}, 0},
      {"AVTransport", "GetTransportInfo", {kInstance}, 0},
      {"AVTransport", "GetPositionInfo", {kInstance}, 0},
      {"AVTransport", "GetDeviceCapabilities", {kInstance}, 0},
      {"AVTransport", "GetTransportSettings", {kInstance}, 0},
      {"AVTransport", "GetCurrentTransportActions", {kInstance}, 0},
      {"AVTransport", "SetNextAVTransportURI", {kInstance, {"NextURI", kFilm}, {"NextURIMetaData", ""}}, 0},
      {"AVTransport", "SetNextAVTransportURI", {kInstance, {"NextURI", "x"}, {"NextURIMetaData", ""}}, 716},
      {"AVTransport", "SetNextAVTransportURI", {kInstance, {"NextURI", ""}, {"NextURIMetaData", ""}}, 0},
      {"AVTransport", "Play", {kInstance, {"Speed", "1"}}, 0},
      {"AVTransport", "Play", {kInstance, {"Speed", "2"}}, 717},
      {"AVTransport", "Play", {kInstance}, 402},
      {"AVTransport", "Pause", {kInstance}, 0},
      {"AVTransport", "Seek", seek("REL_TIME", "0:10:00"), 0},
      {"AVTransport", "Seek", seek("ABS_TIME", "0:10:00.250"), 0},
      {"AVTransport", "Seek", seek("TRACK_NR", "1"), 0},
      {"AVTransport", "Seek", seek("TRACK_NR", "2"), 711},
      {"AVTransport", "Seek", seek("REL_TIME", "2:00:00"), 711},
      {"AVTransport", "Seek", seek("REL_TIME", "ten"), 711},
      {"AVTransport", "Seek", seek("REL_TIME", "-0:00:10"), 711},
      {"AVTransport", "Seek", seek("X_BYTES", "1"), 710},
      {"AVTransport", "Next", {kInstance}, 711},
      {"AVTransport", "Previous", {kInstance}, 0},
      {"AVTransport", "SetPlayMode", {kInstance, {"NewPlayMode", "REPEAT_ONE"}}, 0},
      {"AVTransport", "SetPlayMode", {kInstance, {"NewPlayMode", "BACKWARDS"}}, 712},
      {"AVTransport", "Stop", {kInstance}, 0},
      {"AVTransport", "Record", {kInstance}, 401},
      {"AVTransport", "SetAVTransportURI", address("https://127.0.0.1/a.mp4"), 716},
      {"AVTransport", "SetAVTransportURI", address("file:///etc/passwd"), 716},
      {"AVTransport", "SetAVTransportURI", address("http://203.0.113.9/a.mp4"), 716},
      {"AVTransport", "SetAVTransportURI", address("http://localhost/a.mp4"), 716},
      {"AVTransport", "SetAVTransportURI", address("http://127.0.0.1/a b.mp4"), 716},
      {"AVTransport", "SetAVTransportURI", address("http://127.0.0.1/" + std::string(300, 'a')), 716},
      {"AVTransport", "SetAVTransportURI", address("http://127.0.0.1/a", photo), 714},
      {"AVTransport", "SetAVTransportURI", {kInstance}, 402},
      {"AVTransport", "SetAVTransportURI", address(kFilm), 0},
      {"RenderingControl", "ListPresets", {kInstance}, 0},
      {"RenderingControl", "SelectPreset", {kInstance, {"PresetName", "FactoryDefaults"}}, 0},
      {"RenderingControl", "SelectPreset", {kInstance, {"PresetName", "Loud"}}, 701},
      {"RenderingControl", "GetVolume", {kInstance, {"Channel", "Master"}}, 0},
      {"RenderingControl", "GetVolume", {kInstance, {"Channel", "LF"}}, 600},
      {"RenderingControl", "SetVolume", {kInstance, {"Channel", "Master"}, {"DesiredVolume", "33"}}, 0},
      {"RenderingControl", "SetVolume", {kInstance, {"Channel", "Master"}, {"DesiredVolume", "101"}}, 601},
      {"RenderingControl", "SetVolume", {kInstance, {"Channel", "Master"}, {"DesiredVolume", "-1"}}, 601},
      {"RenderingControl", "SetVolume", {kInstance, {"Channel", "Master"}, {"DesiredVolume", "loud"}}, 402},
      {"RenderingControl", "GetMute", {kInstance, {"Channel", "Master"}}, 0},
      {"RenderingControl", "SetMute", {kInstance, {"Channel", "Master"}, {"DesiredMute", "true"}}, 0},
      {"RenderingControl", "SetMute", {kInstance, {"Channel", "Master"}, {"DesiredMute", "perhaps"}}, 402},
      {"ConnectionManager", "GetProtocolInfo", {}, 0},
      {"ConnectionManager", "GetCurrentConnectionIDs", {}, 0},
      {"ConnectionManager", "GetCurrentConnectionInfo", {{"ConnectionID", "0"}}, 0},
      {"ConnectionManager", "GetCurrentConnectionInfo", {{"ConnectionID", "7"}}, 706},
      {"ConnectionManager", "GetCurrentConnectionInfo", {}, 402},
  };
}

TEST_F(TvRenderer, CarriesOutEveryActionAndRefusesWithTheServicesErrors) {
  begin();
  std::set<std::string> done;
  for (const ActionCase& each : cases()) {
    ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
    ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_PLAYING, "", 0), 0);
    const HttpAnswer answer = act(place, each.service, each.action, each.arguments);
    EXPECT_EQ(answer.error(), each.error) << each.action << " " << answer.text;
    if (each.error == 0) done.insert(std::string(each.service) + each.action);
    dtv_tv_advance(1);  // the application takes its requests
  }
  const Words next = {kInstance, {"NextURI", kFilm}, {"NextURIMetaData", ""}};
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(transport("SetNextAVTransportURI", next).error(), 0);
  EXPECT_EQ(transport("Next").error(), 0);
  done.insert("AVTransportNext");
  for (const RendererService& service : services())
    for (const Action& action : service.actions)
      EXPECT_TRUE(done.contains(std::string(service.name) + std::string(action.name))) << action.name;
}

TEST_F(TvRenderer, HasInstanceZeroOnly) {
  begin();
  const std::map<std::string_view, int> errors = {{"AVTransport", 718}, {"RenderingControl", 702}};
  for (const RendererService& service : services()) {
    for (const Action& action : service.actions) {
      if (action.arguments.empty() || action.arguments[0].name != "InstanceID") continue;
      for (const char* const instance : {"1", "-1", "4294967295"}) {
        const HttpAnswer answer =
            act(place, std::string(service.name), std::string(action.name), {{"InstanceID", instance}});
        EXPECT_EQ(answer.error(), errors.at(service.name)) << action.name << " " << answer.text;
      }
      EXPECT_EQ(act(place, std::string(service.name), std::string(action.name)).error(), 402) << action.name;
    }
  }
}

TEST_F(TvRenderer, RefusesWhatNeedsAnItemWhileItHasNone) {
  begin();
  const Words seek = {kInstance, {"Unit", "REL_TIME"}, {"Target", "0:00:01"}};
  const Words next = {kInstance, {"NextURI", kFilm}, {"NextURIMetaData", ""}};
  EXPECT_EQ(state(), "NO_MEDIA_PRESENT");
  EXPECT_EQ(transport("Play", {kInstance, {"Speed", "1"}}).error(), 701);
  EXPECT_EQ(transport("Seek", seek).error(), 701);
  EXPECT_EQ(transport("SetNextAVTransportURI", next).error(), 701);
  for (const char* const action : {"Stop", "Pause", "Next", "Previous"})
    EXPECT_EQ(transport(action).error(), 701) << action;
  EXPECT_TRUE(application.take(0).empty());
}

TEST_F(TvRenderer, ControlsTheSetsOwnVolume) {
  begin();
  const Words channel = {kInstance, {"Channel", "Master"}};
  EXPECT_EQ(act(place, "RenderingControl", "GetVolume", channel).element("CurrentVolume"), "20");
  EXPECT_EQ(
      act(place, "RenderingControl", "SetVolume", {kInstance, {"Channel", "Master"}, {"DesiredVolume", "41"}}).error(),
      0);
  EXPECT_EQ(a_vextvapi_volctrl_getVolume(), 41);
  EXPECT_EQ(act(place, "RenderingControl", "SetMute", {kInstance, {"Channel", "Master"}, {"DesiredMute", "1"}}).error(),
            0);
  EXPECT_EQ(a_vextvapi_volctrl_getMute(), 1);
  tv_control(R"(["volume","7"])");
  EXPECT_EQ(act(place, "RenderingControl", "GetVolume", channel).element("CurrentVolume"), "7");
  EXPECT_EQ(act(place, "RenderingControl", "GetMute", channel).element("CurrentMute"), "1");
}

// ---- An application plays ----

TEST_F(TvRenderer, SendsRequestsToTheApplicationAndItsReportsToControllers) {
  begin();
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  EXPECT_EQ(application.take(1),
            (std::vector<Asked>{{DMR_REQUEST_LOAD, kFilm, kFilmProtocol, DLNA_MEDIA_VIDEO, 3723}}));
  EXPECT_EQ(state(), "STOPPED");

  ASSERT_EQ(transport("Play", {kInstance, {"Speed", "1"}}).error(), 0);
  EXPECT_EQ(application.take(1), (std::vector<Asked>{{DMR_REQUEST_PLAY, kFilm, kFilmProtocol, 0, 0}}));
  EXPECT_EQ(state(), "TRANSITIONING");

  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_PLAYING, kFilm.c_str(), 0), 0);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_pos(application.instance, 12, 5400), 0);
  EXPECT_EQ(state(), "PLAYING");
  const HttpAnswer position = transport("GetPositionInfo");
  EXPECT_EQ(position.element("Track"), "1");
  EXPECT_EQ(position.element("RelTime"), "0:00:12");
  EXPECT_EQ(position.element("TrackDuration"), "1:30:00");
  EXPECT_EQ(position.element("TrackURI"), kFilm);
  EXPECT_EQ(position.element("TrackMetaData"), kFilmDescription);

  ASSERT_EQ(transport("Seek", {kInstance, {"Unit", "REL_TIME"}, {"Target", "1:00:01"}}).error(), 0);
  EXPECT_EQ(application.take(1), (std::vector<Asked>{{DMR_REQUEST_SEEK, kFilm, kFilmProtocol, 3601, 0}}));
  ASSERT_EQ(transport("Pause").error(), 0);
  EXPECT_EQ(application.take(1), (std::vector<Asked>{{DMR_REQUEST_PAUSE, kFilm, kFilmProtocol, 0, 0}}));
  EXPECT_EQ(state(), "PLAYING");  // until the application says otherwise
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_PAUSED, nullptr, 0), 0);
  EXPECT_EQ(state(), "PAUSED_PLAYBACK");
  ASSERT_EQ(transport("Stop").error(), 0);
  EXPECT_EQ(application.take(1), (std::vector<Asked>{{DMR_REQUEST_STOP, kFilm, kFilmProtocol, 0, 0}}));
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_STOPPED, "", 0), 0);
  EXPECT_EQ(state(), "STOPPED");
}

TEST_F(TvRenderer, LoadsTheNextItemAtTheEndOfOne) {
  begin();
  const std::string second = "http://127.0.0.1:9/two.mp3";
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(transport("SetNextAVTransportURI", {kInstance, {"NextURI", second}, {"NextURIMetaData", ""}}).error(), 0);
  EXPECT_EQ(transport("GetMediaInfo").element("NextURI"), second);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_PLAYING, "", 0), 0);
  application.take(2);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_ENDED, "", 0), 0);
  EXPECT_EQ(application.take(2),
            (std::vector<Asked>{{DMR_REQUEST_LOAD, second, "", 0, 0}, {DMR_REQUEST_PLAY, second, "", 0, 0}}));
  EXPECT_EQ(transport("GetMediaInfo").element("CurrentURI"), second);
  EXPECT_EQ(transport("GetMediaInfo").element("NextURI"), "");
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_ENDED, "", 0), 0);
  EXPECT_EQ(state(), "STOPPED");
}

TEST_F(TvRenderer, RepeatsAnItemThatWasPlayed) {
  begin();
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(transport("SetPlayMode", {kInstance, {"NewPlayMode", "REPEAT_ONE"}}).error(), 0);
  application.take(1);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_ENDED, "", 0), 0);
  EXPECT_EQ(state(), "STOPPED");  // it has not played at all
  ASSERT_EQ(a_vextvapi_dmr_file_sync_pos(application.instance, 90, 90), 0);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_ENDED, "", 0), 0);
  EXPECT_EQ(application.take(1), (std::vector<Asked>{{DMR_REQUEST_PLAY, kFilm, kFilmProtocol, 0, 0}}));
}

TEST_F(TvRenderer, ReportsAnApplicationThatDoesNotBeginToPlay) {
  begin();
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(transport("Play", {kInstance, {"Speed", "1"}}).error(), 0);
  dtv_tv_advance(9'900);
  EXPECT_EQ(state(), "TRANSITIONING");
  dtv_tv_advance(200);
  EXPECT_EQ(state(), "STOPPED");
  EXPECT_EQ(transport("GetTransportInfo").element("CurrentTransportStatus"), "ERROR_OCCURRED");
  EXPECT_EQ(renderer_reply().at("reason"), "the application has not begun to play");
}

TEST_F(TvRenderer, ReportsThatTheApplicationFailed) {
  begin();
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_FAILED, "", 42), 0);
  EXPECT_EQ(transport("GetTransportInfo").element("CurrentTransportStatus"), "ERROR_OCCURRED");
  EXPECT_EQ(renderer_reply().at("reason"), "the application reports error 42");
}

TEST_F(TvRenderer, RefusesInvalidReports) {
  begin();
  const UINT32 instance = application.instance;
  expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_stat(instance, DMR_STATE_PLAYING, "", 0); }),
               {"no controller has sent anything"});
  expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_pos(instance, 1, 2); }),
               {"no controller has sent anything"});
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  for (const INT32 state : {-1, 7, INT32_MAX, INT32_MIN})
    expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_stat(instance, state, "", 0); }),
                 {std::to_string(state), "0 to 6"});
  expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_stat(instance, DMR_STATE_PLAYING, "http://x/", 0); }),
               {"\"http://x/\"", "not what the controller has sent last"});
  for (const INT32 seconds : {-1, INT32_MAX, INT32_MIN, 999 * 3600 + 1}) {
    expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_pos(instance, seconds, 0); }), {"seconds", "999 hours"});
    expect_words(refusal([&] { return a_vextvapi_dmr_file_sync_pos(instance, 0, seconds); }), {"seconds", "999 hours"});
  }
  EXPECT_EQ(state(), "STOPPED");
}

// ---- Facts of the item ----

TEST_F(TvRenderer, GivesTheItemsFactsToTheApplication) {
  begin();
  const UINT32 instance = application.instance;
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  const auto text = [&](auto function) {
    char buffer[128] = {};
    EXPECT_EQ(function(instance, buffer, static_cast<INT32>(sizeof buffer)), 0);
    return std::string(buffer);
  };
  INT32 type = 0, bytes = 0;
  T_DATE_TIME date{};
  EXPECT_EQ(a_vextvapi_dmr_file_getMediaType(instance, &type), 0);
  EXPECT_EQ(type, DLNA_MEDIA_VIDEO);
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaName), "Eine Nacht & ein Tag");
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaExtension), "mp4");
  EXPECT_EQ(a_vextvapi_dmr_file_getMediaSize(instance, &bytes), 0);
  EXPECT_EQ(bytes, INT32_MAX);  // 3,000,000,000 do not fit
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaArtist), "An Artist");
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaAuthor), "K. Author");
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaAlbum), "Collected");
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaDuration), "1:02:03");
  EXPECT_EQ(text(a_vextvapi_dmr_file_getMediaResolution), "1920x1080");
  EXPECT_EQ(a_vextvapi_dmr_file_getMediaDate(instance, &date), 0);
  EXPECT_EQ(std::tuple(date.iyear, date.imonth, date.iday, date.ihour, date.iminute, date.isecond),
            std::tuple(2019, 8, 7, 6, 5, 4));
  char small[5];
  EXPECT_EQ(a_vextvapi_dmr_file_getMediaName(instance, small, sizeof small), 0);
  EXPECT_STREQ(small, "Eine");
}

TEST_F(TvRenderer, RefusesFactsWithoutAnItemABufferOrAnInstance) {
  begin();
  const UINT32 instance = application.instance;
  char text[8];
  INT32 number = 77;
  expect_words(refusal([&] { return a_vextvapi_dmr_file_getMediaName(instance, text, 8); }),
               {"no controller has sent anything"});
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  refusal([&] { return a_vextvapi_dmr_file_getMediaName(instance, nullptr, 8); });
  refusal([&] { return a_vextvapi_dmr_file_getMediaType(instance, nullptr); });
  refusal([&] { return a_vextvapi_dmr_file_getMediaSize(instance, nullptr); });
  refusal([&] { return a_vextvapi_dmr_file_getMediaDate(instance, nullptr); });
  for (const INT32 size : {0, -1, INT32_MIN}) {
    refusal([&] { return a_vextvapi_dmr_file_getMediaName(instance, text, size); });
    refusal([&] { return a_vextvapi_dmr_file_getMediaDuration(instance, text, size); });
  }
  expect_words(refusal([&] { return a_vextvapi_dmr_file_getMediaType(instance + 1, &number); }),
               {"there is no renderer instance"});
  EXPECT_EQ(number, 77);
}

// ---- Instances ----

TEST_F(TvRenderer, ChecksHandlesAndEndsTheOldestInstanceAtTheFifth) {
  std::vector<UINT32> handles;
  for (int i = 0; i < 5; ++i) handles.push_back(a_vextvapi_dmr_file_create());
  for (const UINT32 handle : handles) EXPECT_NE(handle, 0u);
  EXPECT_EQ(std::set<UINT32>(handles.begin(), handles.end()).size(), 5u);
  expect_words(refusal([&] { return a_vextvapi_dmr_file_destroy(handles[0]); }), {"there is no renderer instance"});
  for (std::size_t i = 1; i < handles.size(); ++i) EXPECT_EQ(a_vextvapi_dmr_file_destroy(handles[i]), 0);
  for (const UINT32 handle : {handles[4], UINT32{0}, UINT32_MAX}) {
    refusal([&] { return a_vextvapi_dmr_file_destroy(handle); });
    refusal([&] { return a_vextvapi_cb_dmr_nfy_register_callback(handle, Application::hear, nullptr); });
    refusal([&] { return a_vextvapi_dmr_file_sync_pos(handle, 0, 0); });
    refusal([&] { return a_vextvapi_dmr_file_sync_stat(handle, 0, "", 0); });
  }
  EXPECT_FALSE(renderer_reply().contains("description"));
}

TEST_F(TvRenderer, SendsRequestsToEveryApplication) {
  begin();
  Application second;
  second.begin();
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  EXPECT_EQ(application.take(1).size(), 1u);
  EXPECT_EQ(second.take(1).size(), 1u);
  ASSERT_EQ(a_vextvapi_dmr_file_destroy(application.instance), 0);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(second.instance, DMR_STATE_PLAYING, "", 0), 0);
  EXPECT_EQ(state(), "PLAYING");
}

TEST_F(TvRenderer, RefusesAnActionThatNoApplicationListensTo) {
  begin();
  ASSERT_EQ(a_vextvapi_cb_dmr_nfy_register_callback(application.instance, nullptr, nullptr), 0);
  EXPECT_EQ(transport("SetAVTransportURI", load_film()).error(), 501);
  EXPECT_EQ(state(), "NO_MEDIA_PRESENT") << "what is refused changes nothing";
  ASSERT_EQ(a_vextvapi_cb_dmr_nfy_register_callback(application.instance, Application::hear, &application), 0);
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  ASSERT_EQ(a_vextvapi_dmr_file_sync_stat(application.instance, DMR_STATE_PLAYING, "", 0), 0);
  ASSERT_EQ(a_vextvapi_cb_dmr_nfy_register_callback(application.instance, nullptr, nullptr), 0);
  const Words other = {{"InstanceID", "0"}, {"CurrentURI", "http://127.0.0.1:9/b.mp4"}, {"CurrentURIMetaData", ""}};
  EXPECT_EQ(transport("SetAVTransportURI", other).error(), 501);
  EXPECT_EQ(transport("GetMediaInfo").element("CurrentURI"), kFilm);
  EXPECT_EQ(state(), "PLAYING");
}

TEST_F(TvRenderer, AnApplicationsRendererGoesOnWithAnotherIdentifierAfterAReset) {
  begin();
  const std::string before = exchange(place, "GET", "/description.xml").element("UDN");
  tv_control(R"(["reset"])");
  place = wait_for_place();
  const std::string after = exchange(place, "GET", "/description.xml").element("UDN");
  EXPECT_TRUE(after.starts_with("uuid:")) << after;
  EXPECT_NE(after, before);
  ASSERT_EQ(transport("SetAVTransportURI", load_film()).error(), 0);
  EXPECT_EQ(a_vextvapi_dmr_file_destroy(application.instance), 0);
}

// ---- The viewer's player ----

#ifdef DTV_PICTURE
TEST_F(TvRenderer, AsksOfManyDoNotDisturbTheBeginOfAnItem) {
  const http_test::Server hangs([](int socket, const std::string&) { http_test::hang(socket); });
  renderer_reply("on");
  place = wait_for_place();
  const Words film = {{"InstanceID", "0"}, {"CurrentURI", hangs.address("/film.mp4")}, {"CurrentURIMetaData", ""}};
  std::atomic<bool> asks = true;
  std::thread asker([&] {
    while (asks) renderer_reply();
  });
  for (int i = 0; i < 40; ++i) {
    EXPECT_EQ(transport("SetAVTransportURI", film).error(), 0);
    EXPECT_EQ(transport("Play", {kInstance, {"Speed", "1"}}).error(), 0);
    EXPECT_EQ(state(), "TRANSITIONING") << "round " << i;
    EXPECT_EQ(transport("Stop").error(), 0);
    EXPECT_EQ(boost::json::parse(tv_control(R"(["player"])")).at("state"), "none") << "round " << i;
  }
  asks = false;
  asker.join();
}
#endif

// ---- The viewer's switch ----

TEST_F(TvRenderer, StaysOnWithTheSameIdentifierWhenTheSetIsSwitchedOnAgain) {
  EXPECT_EQ(renderer_reply().at("on"), false);
  EXPECT_EQ(renderer_reply("on").at("on"), true);
  place = wait_for_place();
  const std::string udn = exchange(place, "GET", "/description.xml").element("UDN");
  EXPECT_EQ(boost::json::parse(tv_control(R"(["state"])")).at("renderer"), "no media");
  dtv_tv_stop();
  ASSERT_EQ(tv_start(folder.path), "");
  place = wait_for_place();
  EXPECT_EQ(exchange(place, "GET", "/description.xml").element("UDN"), udn);
  EXPECT_FALSE(renderer_reply("off").contains("description"));
  EXPECT_EQ(renderer_reply().at("application"), false);
  EXPECT_NE(tv_control(R"(["renderer","perhaps"])").find("on or off"), std::string::npos);
}

TEST_F(TvRenderer, IsOffAfterAReset) {
  renderer_reply("on");
  wait_for_place();
  EXPECT_EQ(tv_control(R"(["reset"])"), "{" TV_FACTORY_STATE "}");
  EXPECT_EQ(renderer_reply().at("on"), false);
  EXPECT_FALSE(renderer_reply().contains("description"));
}

}  // namespace
