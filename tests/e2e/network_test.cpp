// Network outputs that never answer, and stops that overtake a start.
#include <gtest/gtest.h>

#include <thread>

#include "judge.h"
#include "recording.h"
#include "sockets.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix

std::string rtmp_url(uint16_t port) {
  return "rtmp://127.0.0.1:" + std::to_string(port) + "/live/test";
}

TEST(StuckNetwork, AStopEndsAnOpeningUnderWay) {
  const Listener server;
  Recording recording(settings(rtmp_url(server.port())), true);
  const Socket client = server.accept();  // the opening has got as far as the handshake
  EXPECT_FALSE(recording.open());
  EXPECT_FALSE(recording.picture(gradients(0), time_us(0)));
  EXPECT_FALSE(recording.sound(tone(0), time_us(0)));
  recording.stop();
  EXPECT_TRUE(recording.statuses().empty()) << "the host gave up by itself";
  close_socket(client);
}

TEST(StuckNetwork, ASynchronousStartFailsAfterItsTimeout) {
  const Listener server;
  MovieInfo info = settings(rtmp_url(server.port()));
  info.timeout_sec = 1;
  Recording recording(info);
  EXPECT_FALSE(recording.open());
  ASSERT_EQ(recording.failures().size(), 1U);
  EXPECT_NE(recording.failures()[0].text, "");
}

TEST(RefusedConnection, IsToldByStatus) {
  Listener server;
  const std::string url = rtmp_url(server.port());
  server.close();
  for (const bool async : {false, true}) {
    Recording recording(settings(url), async);
    // A connection to this machine is refused at once; the report comes before or never.
    while (async && recording.statuses().empty()) std::this_thread::yield();
    EXPECT_FALSE(recording.open());
    ASSERT_EQ(recording.failures().size(), 1U);
    EXPECT_NE(recording.failures()[0].text, "");
  }
}

// Recording itself fails the test when anything is told after the stop.
TEST(AsynchronousStart, CanBeOvertakenByTheStop) {
  const Listener silent;
  for (int i = 0; i < 20; ++i) {
    const bool to_file = i % 2 == 0;
    Recording recording(
        to_file ? settings(work_file("overtaken.mp4")) : settings(rtmp_url(silent.port())), true);
    recording.stop();
  }
}

TEST(AsynchronousStart, RecordsOnceItHasBeenConfirmed) {
  const std::filesystem::path file = work_file("movie.mp4");
  Recording recording(settings(file), true);
  while (recording.statuses().empty()) std::this_thread::yield();
  EXPECT_EQ(recording.statuses()[0].code, 0);
  EXPECT_EQ(recording.statuses()[0].text, "start OK");
  recording.feed(0, 10);
  recording.stop();
  EXPECT_EQ(number(streams(file)[0], "nb_read_frames"), 10);
}

}  // namespace
