// A host of packet recordings: streams whose content is known, and what the library said.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "zeva/zeva.h"

namespace zeva_test {

struct HostPacket {
  bool video;
  int64_t usec;
  std::string bytes;  // sound with ADTS headers, pictures length-prefixed or with start codes
};

struct SourceMovie {
  std::vector<HostPacket> packets;  // in the order of the file
  std::vector<uint8_t> extradata;
};

// Records picture and sound into source.mp4 of the running test, and takes the packets out.
SourceMovie make_source(int seconds, bool start_codes = true);

// H.264 and AAC packets into `url`.
MovieInfo2 packet_settings(const std::string& url);

// One recording; stopped by its destructor at the latest.
class PacketRecording {
 public:
  explicit PacketRecording(const MovieInfo2& info, const ZevaOptions* options = nullptr)
      : handle(ZEVA2_start_with(&info, options, on_status, this)) {}
  ~PacketRecording() { stop(); }
  bool write(HostPacket packet);
  void write(const std::vector<HostPacket>& packets) {
    for (const HostPacket& packet : packets) write(packet);
  }
  // Waits, for 15 s at most, until `code` was told.
  bool wait_for(int code);
  // Returns all that was told: the last thing that may be.
  std::vector<int> stop();

 private:
  static void on_status(int code, const char* message, void* user);
  std::mutex mutex;
  std::condition_variable told;
  std::vector<int> codes;  // guarded by mutex
  bool stopped = false;    // guarded by mutex

 public:
  void* handle;  // last: the callback uses the others at once
};

}  // namespace zeva_test
