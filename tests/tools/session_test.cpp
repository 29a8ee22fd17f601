// The recorder and its verdict, with a recording that reports what the test wants.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "recorder.h"
#include "session_verdict.h"
#include "zeva/status.h"

namespace zeva_tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kPictures = 10;

// Reports `reports` as soon as it is open, each of them twice.
class FakeRecording : public Recording {
 public:
  std::vector<Report> reports;

  Status prepare() override { return {}; }
  void start(StatusInbox& inbox) override {
    StatusInbox::receive(0, "start OK", &inbox);
    for (const Report& report : reports) {
      StatusInbox::receive(report.code, report.text.c_str(), &inbox);
      StatusInbox::receive(report.code, report.text.c_str(), &inbox);
    }
  }
  bool begin(RecordingStreams& streams, StatusLine& /*line*/) override {
    streams.pictures = true;
    return true;
  }
  void* handle() override { return nullptr; }
  bool pause() override { return false; }
  bool resume() override { return false; }
  int64_t movie_time_us() const override { return 0; }
  void stop() override {}
};

class FakeSource : public Source {
 public:
  int refused = 0;  // of the pictures, the first ones

  Status open() override { return {}; }
  Piece next() override {
    return {count < kPictures ? Piece::Kind::kPicture : Piece::Kind::kEnd, count};
  }
  bool write(void* /*recording*/, int64_t /*stamp_us*/) override { return ++count > refused; }

 private:
  int count = 0;
};

struct Outcome {
  RecordingResult result;
  std::string shown;
};

Outcome record(const std::vector<Report>& reports, int refused = 0) {
  Outcome outcome;
  FakeRecording recording;
  recording.reports = reports;
  FakeSource source;
  source.refused = refused;
  Terminal terminal;
  StatusLine line(terminal, {}, false);
  testing::internal::CaptureStderr();
  Spill nowhere({}, {});
  outcome.result =
      Recorder(recording, {true, {}}, {"a.mp4"}, source, nowhere, terminal, line).run();
  outcome.shown = testing::internal::GetCapturedStderr();
  return outcome;
}

TEST(ToolSession, ReportsThatEndNothingAreShownOnceAndJudged) {
  struct {
    int code;
    const char* fault;  // part of a sentence that makes the exit status 1
    const char* doubt;
  } const rows[] = {
      {kZevaStatusIndexMissing, nullptr, "no index"},
      {kZevaStatusIndexFailing, nullptr, "hole"},
      {kZevaStatusIndexBack, nullptr, nullptr},
      {kZevaStatusSyncFailing, nullptr, "power failure"},
      {kZevaStatusPictureRefused, "lack pictures", nullptr},
      {kZevaStatusSoundRefused, "lack sound", nullptr},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code);
    const Outcome outcome = record({{row.code, "something about 'a.mp4'"}});
    const std::string code = std::to_string(row.code);
    EXPECT_EQ(outcome.shown, "zeva: warning: something about 'a.mp4' (code " + code + ")\n");
    EXPECT_EQ(outcome.result.progress.pictures, kPictures) << "it ended the recording";
    EXPECT_THAT(outcome.result.failures, IsEmpty());
    const auto faults = missing_parts(outcome.result);
    const auto doubts = recording_doubts(outcome.result);
    ASSERT_EQ(faults.size(), row.fault != nullptr ? 1u : 0u);
    ASSERT_EQ(doubts.size(), row.doubt != nullptr ? 1u : 0u);
    for (const std::string& fault : faults) EXPECT_THAT(fault, HasSubstr(row.fault));
    for (const std::string& doubt : doubts) EXPECT_THAT(doubt, HasSubstr(row.doubt));
  }
}

TEST(ToolSession, RefusedPicturesAreNotCountedAsRecorded) {
  const Outcome outcome = record({}, 3);
  EXPECT_EQ(outcome.result.progress.pictures, kPictures - 3);
  EXPECT_EQ(outcome.result.progress.dropped, 3);
}

TEST(ToolSession, FailedOutputIsTheOneThatTheReportNames) {
  const std::vector<std::string> urls{"rtmp://a/x", "rtmp://b/y", "rtmp://c/z"};
  RecordingResult result;
  result.opened = true;
  result.pieces = 1;
  for (const bool of_packets : {false, true}) {
    result.failures = {{-28, "writing to 'rtmp://b/y' failed"},
                       {-5, "writing to 'rtmp://b/y' failed again"}};
    EXPECT_THAT(recording_faults(urls, result, of_packets),
                ElementsAre("rtmp://b/y failed: writing to 'rtmp://b/y' failed"));
    result.failures = {{-28, "nobody knows"}};
    EXPECT_THAT(recording_faults(urls, result, of_packets),
                ElementsAre("one of the outputs failed: nobody knows"));
    EXPECT_THAT(recording_faults({urls[0]}, result, of_packets),
                ElementsAre("rtmp://a/x failed: nobody knows"));
  }
}

}  // namespace
}  // namespace zeva_tool
