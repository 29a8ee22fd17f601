// Network outputs that never answer, and stops that overtake a start.
#include <gtest/gtest.h>

#include <thread>

#include "recording.h"
#include "sockets.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix

// By itself, the library waits for the server much longer than a test may take.
MovieInfo live(uint16_t port, int timeout_sec = 3600) {
  MovieInfo info = settings("rtmp://127.0.0.1:" + std::to_string(port) + "/live/test");
  info.timeout_sec = timeout_sec;
  return info;
}

TEST(StuckNetwork, AStopEndsAnOpeningUnderWay) {
  const Listener server;
  Recording recording(live(server.port()), true);
  const Socket client = server.accept();  // the opening has got as far as the handshake
  EXPECT_FALSE(recording.open());
  EXPECT_FALSE(recording.picture(gradients(0), time_us(0)));
  EXPECT_FALSE(recording.sound(tone(0), time_us(0)));
  recording.stop();
  EXPECT_TRUE(recording.statuses().empty()) << "the host gave up by itself";
  close_socket(client);
}

TEST(UnreachableServer, IsToldByStatus) {
  const Listener silent;
  Listener refusing;
  refusing.close();
  const struct {
    uint16_t port;
    bool async;
  } cases[] = {{silent.port(), false}, {refusing.port(), false}, {refusing.port(), true}};
  for (const auto& c : cases) {
    Recording recording(live(c.port, 1), c.async);
    while (c.async && recording.statuses().empty()) std::this_thread::yield();
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
    Recording recording(to_file ? settings(work_file("movie.mp4")) : live(silent.port()), true);
    recording.stop();
  }
}

}  // namespace
