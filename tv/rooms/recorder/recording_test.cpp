// Recordings of what the antenna receives: files that grow, ends of every kind, two tuners.
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>

#include "rooms/antenna/survey.h"
#include "rooms/recorder/recorder_test.h"
#include "tests/unit/tv/disk.h"
#include "tests/unit/tv/store_support.h"

namespace {

using RecorderFiles = ReceivingSet;

constexpr std::int64_t kSome = 100'000;  // bytes

std::string id_of(const boost::json::value& recording) { return std::to_string(number_in(recording, "id")); }

std::int64_t size_of(const std::string& path) {
  std::error_code none;
  const auto size = std::filesystem::file_size(path, none);
  return none ? -1 : static_cast<std::int64_t>(size);
}

bool ends_as(const char* status) {
  return comes_true([status] { return text_in(newest_recording(), "status") == status; });
}

void show(const char* digit) {
  press(digit);
  press("ENTER");
}

TEST_F(RecorderFiles, RecordsOneProgramOfTheCurrentChannelUntilStopped) {
  show("2");
  const boost::json::value begun = reply_to({"record", "now", "30"});
  ASSERT_EQ(error_of(begun), "");
  EXPECT_EQ(text_in(begun, "channel"), "Two");
  EXPECT_EQ(text_in(begun, "status"), "recording");
  EXPECT_NE(run({"state"}).find("\"recording\":[{\"id\":"), std::string::npos);
  EXPECT_NE(error_of(reply_to({"record", "now"})).find("already"), std::string::npos);
  _RmdrEventInfo_T request{};
  request.e_operation = RMDR_OP_IS_RECORDING;
  request.ui4_ref_channel_id = channel_id(2);
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.is_recording, 1);
  request.ui4_ref_channel_id = channel_id(1);
  ASSERT_EQ(read_item(request), 0);
  EXPECT_EQ(request.is_recording, 0);
  EXPECT_NE(error_of(reply_to({"recording", id_of(begun), "delete"})), "") << "not while it runs";
  grows_to(2 * kSome);
  const boost::json::value stopped = reply_to({"record", "stop"});
  EXPECT_EQ(text_in(stopped, "status"), "partial");
  EXPECT_EQ(text_in(stopped, "reason"), "stopped by the viewer");
  EXPECT_EQ(run({"state"}).find("\"recording\":["), std::string::npos);
  EXPECT_EQ(listed_timers().size(), 0u);

  const std::string path = path_of(stopped);
  EXPECT_EQ(size_of(path), number_in(stopped, "bytes"));
  EXPECT_EQ(size_of(path) % 188, 0);
  std::string error;
  Survey survey;
  const std::atomic<bool> go_on = false;
  ASSERT_TRUE(survey_read(path, SurveyAim::kServices, go_on, survey, error)) << error;
  ASSERT_EQ(survey.programs.size(), 1u);
  EXPECT_EQ(survey.programs.begin()->first, 102);
}

TEST_F(RecorderFiles, EndsWithItsTimeAndHasTheLengthOfItsFile) {
  ASSERT_EQ(error_of(reply_to({"record", "now", "1"})), "");
  grows_to(5 * kSome);
  const std::int64_t bytes = number_in(newest_recording(), "bytes");
  dtv_tv_advance(61'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "complete");
  EXPECT_GE(number_in(newest_recording(), "bytes"), bytes);
  // 5 packets of 188 bytes a millisecond
  const std::int64_t expected = number_in(newest_recording(), "bytes") / (5 * 188 * 1000);
  EXPECT_NEAR(static_cast<double>(number_in(newest_recording(), "seconds")), static_cast<double>(expected), 1);
}

TEST_F(RecorderFiles, TimerRecordsInStandbyAndLeavesTheSetThere) {
  standby();
  expect_done(run({"record", "3", "+10", "20"}));
  dtv_tv_advance(10 * 60'000 + 1000);
  EXPECT_EQ(power(), "standby");
  grows_to(kSome);
  EXPECT_EQ(text_in(newest_recording(), "channel"), "Three");
  _RmdrEventInfo_T slot{};
  slot.e_operation = RMDR_OP_RECORDING_ON_SLOT;
  slot.ui2_slot = static_cast<UINT16>(number_in(listed_timers()[0], "id"));
  ASSERT_EQ(read_item(slot), 0);
  EXPECT_EQ(slot.is_on_going_pvr, 1);
  dtv_tv_advance(20 * 60'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "complete");
  EXPECT_EQ(power(), "standby");
}

TEST_F(RecorderFiles, TwoMultiplexesInStandbyButNotAThird) {
  standby();
  expect_done(run({"record", "1", "+0", "20"}));
  expect_done(run({"record", "3", "+0", "20"}));
  expect_done(run({"record", "2", "+0", "20"}));
  const std::string error = error_of(reply_to({"record", "42", "+0", "20"}));
  EXPECT_NE(error.find("2 tuners"), std::string::npos) << error;
  dtv_tv_advance(1000);
  EXPECT_EQ(listed_recordings(), 3u);
  const boost::json::value all = reply_to({"recordings"});
  for (const boost::json::value& each : all.at("recordings").as_array())
    EXPECT_EQ(text_in(each, "status"), "recording");
}

TEST_F(RecorderFiles, PictureKeepsItsTunerWhileTheSetIsOn) {
  show("1");
  dtv_tv_advance(5000);  // the picture comes
  expect_done(run({"record", "3", "+10", "20"}));
  expect_done(run({"record", "42", "+10", "20"}));
  dtv_tv_advance(11 * 60'000);
  ASSERT_EQ(listed_recordings(), 1u);
  const boost::json::array timers = listed_timers();
  ASSERT_EQ(timers.size(), 2u);
  const std::size_t waits = text_in(timers[0], "waits").empty() ? 1 : 0;
  EXPECT_EQ(text_in(timers[waits], "waits"), "no tuner is free");
  standby();
  dtv_tv_advance(11'000);
  EXPECT_EQ(listed_recordings(), 2u) << "in standby the picture gives up its tuner";
}

TEST_F(RecorderFiles, EverySortAndPageOfTheList) {
  for (const char* const title : {"Bravo", "Alpha", "Charlie"}) {
    _Qt_RECLIST_INFO_T now{};
    now.e_op = RECLIST_OP_RECORD_NOW;
    now.t_reclist_info.channel_id = channel_id(1);
    now.t_reclist_info.duration = 60;
    std::strcpy(now.t_reclist_info.program_name, title);
    ASSERT_EQ(write_item(now), 0);
    grows_to(kSome);
    _Qt_RECLIST_INFO_T stop{};
    stop.e_op = RECLIST_OP_STOP;
    ASSERT_EQ(write_item(stop), 0);
    dtv_tv_advance(2000);
  }
  const auto titles = [](INT32 sort, UINT16 start_slot, UINT16 page) {
    _Qt_RECLIST_INFO_T list{};
    list.e_sort_type = sort;
    list.start_slot = start_slot;
    list.page_index = page;
    EXPECT_EQ(read_item(list), 0);
    EXPECT_EQ(list.reclist_num, 3);
    std::string text;
    for (const RECLIST_ENTRY_T& entry : list.at_page) text += std::string(entry.program_name) + ".";
    return text;
  };
  EXPECT_EQ(titles(RECLIST_SORT_NEWEST, 0, 0), "Charlie.Alpha.Bravo.......");
  EXPECT_EQ(titles(RECLIST_SORT_OLDEST, 0, 0), "Bravo.Alpha.Charlie.......");
  EXPECT_EQ(titles(RECLIST_SORT_NAME, 0, 0), "Alpha.Bravo.Charlie.......");
  EXPECT_EQ(titles(RECLIST_SORT_NAME, 1, 0), "Bravo.Charlie........");
  EXPECT_EQ(titles(RECLIST_SORT_NAME, 0, 1), ".........");

  _Qt_RECLIST_INFO_T list{};
  list.e_sort_type = RECLIST_SORT_NAME;
  ASSERT_EQ(read_item(list), 0);
  const RECLIST_ENTRY_T entry = list.at_page[1];
  EXPECT_EQ(entry.channel_id, channel_id(1));
  EXPECT_EQ(entry.recording_status, RECLIST_STATUS_PARTIAL);
  EXPECT_EQ(entry.failure_reason, RECLIST_REASON_STOPPED);
  EXPECT_EQ(entry.slot, 1);
  EXPECT_STREQ(entry.channel_name, "One");

  _Qt_RECLIST_INFO_T file{};
  file.e_op = RECLIST_OP_FILE;
  file.e_sort_type = RECLIST_SORT_NAME;
  file.t_reclist_info.slot = 1;
  ASSERT_EQ(read_item(file), 0);
  EXPECT_STREQ(file.file_url_id, entry.file_url_id);
  EXPECT_GE(size_of(folder.path + "/recordings/" + file.file_url_id), kSome);
  EXPECT_EQ(file.recording_status, RECLIST_STATUS_PARTIAL);
  file.t_reclist_info.list_id = entry.list_id;
  file.t_reclist_info.slot = 0;
  ASSERT_EQ(read_item(file), 0);
  EXPECT_STREQ(file.file_name_id, entry.file_name_id);

  _Qt_RECLIST_INFO_T change{};
  change.e_op = RECLIST_OP_RENAME;
  change.t_reclist_info.list_id = entry.list_id;
  refusal([&] { return write_item(change); });
  std::memset(change.t_reclist_info.program_name, 'z', sizeof change.t_reclist_info.program_name);
  ASSERT_EQ(write_item(change), 0) << "a text that fills its member";
  EXPECT_EQ(titles(RECLIST_SORT_NAME, 0, 0), "Alpha.Charlie." + std::string(71, 'z') + ".......");
  change.t_reclist_info.program_name[0] = '\xFF';
  refusal([&] { return write_item(change); });
  change.e_op = RECLIST_OP_DELETE;
  change.t_reclist_info.program_name[0] = '\0';
  expect_done(run({"recording", std::to_string(entry.list_id), "keep"}));
  refusal([&] { return write_item(change); });
  expect_done(run({"recording", std::to_string(entry.list_id), "keep"}));
  ASSERT_EQ(write_item(change), 0);
  EXPECT_EQ(listed_recordings(), 2u);
  EXPECT_EQ(size_of(folder.path + "/recordings/" + entry.file_url_id), -1);
  restart();
  EXPECT_EQ(listed_recordings(), 2u);
}

TEST_F(RecorderFiles, ResumeTimeAndPlaybackAreKeptByRecording) {
  ASSERT_EQ(error_of(reply_to({"record", "now", "1"})), "");
  grows_to(kSome);
  _PvrFileInfo info{};
  info.ui2_list_id = static_cast<UINT16>(number_in(newest_recording(), "id"));
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, info), 0);
  EXPECT_EQ(info.e_file_status, PVR_FILE_RECORDING);
  const auto write = [&](INT32 status, UINT32 resume) {
    info.e_file_status = status;
    info.ui4_resume_time = resume;
    return setConfigValueStruct(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, sizeof info, &info);
  };
  ASSERT_EQ(write(PVR_FILE_PLAYING, 17), 0);
  dtv_tv_advance(61'000);
  _PvrFileInfo last{};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, last), 0);
  EXPECT_EQ(last.ui2_list_id, info.ui2_list_id);
  EXPECT_EQ(last.e_file_status, PVR_FILE_PLAYING);
  EXPECT_EQ(last.ui4_resume_time, 17u) << "the end of the recording keeps it";
  ASSERT_EQ(write(PVR_FILE_PAUSED, 20), 0);
  ASSERT_EQ(write(PVR_FILE_READY, 23), 0);
  for (const INT32 status : std::initializer_list<INT32>{PVR_FILE_NONE, PVR_FILE_RECORDING, 5, -1})
    refusal([&] { return write(status, 1); });
  info.ui2_list_id = 999;
  refusal([&] { return write(PVR_FILE_READY, 1); });
  restart();
  last.e_file_status = PVR_FILE_NONE;
  last.ui4_resume_time = 0;
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, last), 0);
  EXPECT_EQ(last.e_file_status, PVR_FILE_READY);
  EXPECT_EQ(last.ui4_resume_time, 23u);
  last = {};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, last), 0);
  EXPECT_EQ(last.ui2_list_id, number_in(newest_recording(), "id")) << "the one that was written last, after a restart";
  EXPECT_EQ(last.ui4_resume_time, 23u);
  expect_done(run({"recording", std::to_string(last.ui2_list_id), "delete"}));
  restart();
  last = {};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, last), 0);
  EXPECT_EQ(last.ui2_list_id, 0) << "its recording is gone";
  EXPECT_EQ(last.e_file_status, PVR_FILE_NONE);
}

// Records a moment of each of these channels, one after the other.
void record_each(std::initializer_list<int> channels) {
  for (const int channel : channels) {
    _Qt_RECLIST_INFO_T request{};
    request.e_op = RECLIST_OP_RECORD_NOW;
    request.t_reclist_info.channel_id = channel_id(channel);
    request.t_reclist_info.duration = 60;
    ASSERT_EQ(write_item(request), 0);
    RecorderFiles::grows_to(kSome);
    request.e_op = RECLIST_OP_STOP;
    ASSERT_EQ(write_item(request), 0);
    dtv_tv_advance(2000);
  }
}

TEST_F(RecorderFiles, ListOfOneChannel) {
  record_each({1, 2, 1});
  _Qt_RECLIST_INFO_T list{};
  list.e_sort_type = RECLIST_SORT_OLDEST;
  list.t_reclist_info.channel_id = channel_id(1);
  const auto channels = [&list] {
    EXPECT_EQ(read_item(list), 0);
    std::string names;
    for (const RECLIST_ENTRY_T& entry : list.at_page) names += std::string(entry.channel_name) + ".";
    return names;
  };
  EXPECT_EQ(channels(), "One.One........");
  EXPECT_EQ(list.reclist_num, 2);
  list.start_slot = 1;
  EXPECT_EQ(channels(), "One.........");
  const std::string second = list.at_page[0].file_name_id;
  list.e_op = RECLIST_OP_FILE;
  list.t_reclist_info.slot = 1;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.file_name_id, second) << "the place among the channel's recordings";
  list = {};
  list.e_op = RECLIST_OP_NUMBER;
  list.t_reclist_info.channel_id = channel_id(2);
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.reclist_num, 1);
  expect_done(run({"channel", "2", "delete"}));
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.reclist_num, 1) << "a channel that is not in the list any more";
  list.t_reclist_info.channel_id = 7;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.reclist_num, 0);
  list.t_reclist_info.channel_id = 0;
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.reclist_num, 3);
}

TEST_F(RecorderFiles, EntryHasTheLogoOfItsChannelAndAFileOnThePairedDisk) {
  record_each({1});
  dtv_tv_stop();
  write_sql(folder.path + "/channels.sqlite", "UPDATE channel SET logo = 77");
  ASSERT_EQ(tv_start(folder.path), "");
  _Qt_RECLIST_INFO_T list{};
  ASSERT_EQ(read_item(list), 0);
  EXPECT_EQ(list.at_page[0].channel_logo_id, 77u);
  _Qt_PAIRED_DISK_INFO disk{};
  ASSERT_EQ(read_item(VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, disk), 0);
  EXPECT_GE(size_of(std::string(disk.ca_mnt_path) + "/" + list.at_page[0].file_url_id), kSome);
}

// ---- Ends that nobody wanted ----

TEST_F(RecorderFiles, FileThatVanishesEndsTheRecording) {
  ASSERT_EQ(error_of(reply_to({"record", "now", "30"})), "");
  grows_to(kSome);
  std::filesystem::remove(path_of(newest_recording()));
  EXPECT_TRUE(ends_as("failed"));
  EXPECT_EQ(text_in(newest_recording(), "reason"), "the file was deleted or moved");
  EXPECT_TRUE(comes_true([] { return listed_timers().empty(); }));
}

TEST_F(RecorderFiles, StreamThatVanishesEndsTheRecording) {
  ASSERT_EQ(error_of(reply_to({"record", "now", "30"})), "");
  grows_to(kSome);
  std::filesystem::remove(air + "/10.ts");
  expect_done(antenna("rescan"));
  EXPECT_TRUE(ends_as("partial"));
  EXPECT_EQ(text_in(newest_recording(), "reason"), "the signal was lost");
  EXPECT_GE(size_of(path_of(newest_recording())), kSome);
}

TEST_F(RecorderFiles, SwitchingTheSetOffInterruptsAndTheNextStartGoesOn) {
  ASSERT_EQ(error_of(reply_to({"record", "now", "30"})), "");
  grows_to(kSome);
  restart();
  read_antenna();
  EXPECT_TRUE(comes_true([] { return listed_recordings() == 2; })) << "the rest is a second recording";
  EXPECT_EQ(text_in(newest_recording(), "status"), "recording");
  const boost::json::value first = reply_to({"recordings"}).at("recordings").at(1);
  EXPECT_EQ(text_in(first, "status"), "partial");
  EXPECT_EQ(text_in(first, "reason"), "the set was switched off");
}

TEST(RecorderEnds, KilledSetListsTheRecordingAsInterrupted) {
  TvFolder home, folder;
  dtv_tv_stick_root(home.path.c_str());
  std::filesystem::create_directory(home.path + "/air");
  write_bytes(home.path + "/air/10.ts", multiplex(10, {101, 102}, 4));
  std::ofstream(home.path + "/air.conf") << channel_lines(kTestChannels[0], "DVBT");
  const pid_t child = fork();
  if (child == 0) {
    const auto size = [] { return number_in(newest_recording(), "bytes"); };
    if (dtv_tv_start(folder.path.c_str(), nullptr) != 0) _exit(1);
    run({"channels", "import", home.path + "/air.conf"});
    antenna(home.path + "/air");
    read_antenna();
    if (!error_of(reply_to({"record", "now", "1"})).empty()) _exit(2);
    if (!comes_true([&] { return size() >= 4'000'000; })) _exit(3);
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  ASSERT_EQ(tv_start(folder.path), "");
  const boost::json::array all = reply_to({"recordings"}).at("recordings").as_array();
  const boost::json::value& first = all.back();
  EXPECT_EQ(text_in(first, "status"), "partial");
  EXPECT_EQ(text_in(first, "reason"), "the set was switched off");
  const std::string path = folder.path + "/" + text_in(first, "file");
  EXPECT_EQ(number_in(first, "bytes"), size_of(path));
  EXPECT_GE(size_of(path), 4'000'000);
  EXPECT_NEAR(static_cast<double>(number_in(first, "seconds")), static_cast<double>(size_of(path) / (5 * 188'000)), 1);
  std::string error;
  Survey survey;
  const std::atomic<bool> go_on = false;
  EXPECT_TRUE(survey_read(path, SurveyAim::kServices, go_on, survey, error)) << error;
}

// A file system of this many megabytes in a mount namespace of this process.
bool mount_small(const std::string& folder, int megabytes) {
  const std::string size = "mode=700,size=" + std::to_string(megabytes) + "m";
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

TEST(RecorderEnds, FullDiskEndsTheRecordingAndKeepsWhatIsThere) {
  TvFolder home, folder;
  dtv_tv_stick_root(home.path.c_str());
  std::filesystem::create_directory(home.path + "/air");
  write_bytes(home.path + "/air/10.ts", multiplex(10, {101, 102}, 8));
  std::ofstream(home.path + "/air.conf") << channel_lines(kTestChannels[0], "DVBT");
  const pid_t child = fork();
  if (child == 0) {
    if (!mount_small(folder.path, 69)) _exit(77);  // 64 are the reserve
    if (dtv_tv_start(folder.path.c_str(), nullptr) != 0) _exit(1);
    run({"channels", "import", home.path + "/air.conf"});
    antenna(home.path + "/air");
    read_antenna();
    EXPECT_EQ(error_of(reply_to({"record", "now", "30"})), "");
    EXPECT_TRUE(ends_as("partial"));
    const boost::json::value ended = newest_recording();
    EXPECT_EQ(text_in(ended, "reason"), "the disk is full");
    EXPECT_GE(number_in(ended, "bytes"), 1'000'000);
    EXPECT_EQ(size_of(folder.path + "/" + text_in(ended, "file")), number_in(ended, "bytes"));
    EXPECT_GE(std::filesystem::space(folder.path).available, 63u << 20);
    expect_done(run({"volume", "33"}));
    std::ofstream(folder.path + "/filler") << std::string(5'000'000, 'x');
    EXPECT_NE(error_of(reply_to({"record", "now", "30"})).find("the disk is full"), std::string::npos);
    EXPECT_EQ(listed_recordings(), 1u);
    _RmdrEventInfo_T ready{};
    ready.e_operation = RMDR_OP_USB_READY;
    EXPECT_EQ(read_item(ready), 0);
    EXPECT_EQ(ready.is_usb_ready, 0);
    dtv_tv_stop();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "mounts are not allowed here";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(RecorderFiles, SlowDiskLosesPartsAndSaysSo) {
  write_bytes(air + "/10.ts", multiplex(10, {101, 102}, 150));  // 28 MB/s
  expect_done(antenna("rescan"));
  read_antenna();
  std::atomic<bool> stuck = true;
  const DiskGuard slow([&stuck](int descriptor) {
    while (stuck && is_named(descriptor, ".ts")) std::this_thread::yield();
    return 0;
  });
  ASSERT_EQ(error_of(reply_to({"record", "now", "1"})), "");
  EXPECT_TRUE(comes_true([] { return number_in(newest_recording(), "lost_bytes") > 0; }));
  stuck = false;
  dtv_tv_advance(61'000);
  EXPECT_EQ(text_in(newest_recording(), "status"), "complete");
  EXPECT_EQ(text_in(newest_recording(), "reason"), "the disk was too slow for parts of it");
  EXPECT_EQ(size_of(path_of(newest_recording())) % 188, 0);
}

TEST_F(RecorderFiles, PlaysWhileItGrows) {
  const std::string make =
      "ffmpeg -v error -y -f lavfi -i testsrc=size=352x288:rate=25 -t 4 -c:v mpeg2video -f mpegts "
      "-mpegts_transport_stream_id 10 -mpegts_original_network_id 1 -mpegts_service_id 101 "
      "-muxrate 3000k " +
      air + "/10.ts";
  ASSERT_EQ(system(make.c_str()), 0);  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  expect_done(antenna("rescan"));
  read_antenna();
  ASSERT_EQ(error_of(reply_to({"record", "now", "30"})), "");
  grows_to(300'000);
  const std::string path = path_of(newest_recording());
  const std::string probe =
      "ffprobe -v error -select_streams v -show_entries stream=codec_name,width -of default=nw=1:nk=1 " + path + " > " +
      home.path + "/probe 2>&1";
  ASSERT_EQ(system(probe.c_str()), 0);  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  std::string codec, width;
  std::ifstream(home.path + "/probe") >> codec >> width;
  EXPECT_EQ(codec + " " + width, "mpeg2video 352");
  EXPECT_EQ(text_in(newest_recording(), "status"), "recording");
}

}  // namespace
