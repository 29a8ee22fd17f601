// A host with an encoder of its own: the packets of a movie, and a recording of them.
#pragma once

#include "recording.h"

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

// Records `seconds` of picture and sound into `file`, and takes the packets out.
SourceMovie make_source(const std::filesystem::path& file, int seconds, bool start_codes);

// Stopped by its destructor at the latest. Nothing may be told after that.
class PacketRecording {
 public:
  explicit PacketRecording(const MovieInfo2& info) { handle = ZEVA2_start(info, on_status, this); }
  ~PacketRecording() { stop(); }
  bool write(HostPacket packet);
  void write(const std::vector<HostPacket>& packets) {
    for (const HostPacket& packet : packets) write(packet);
  }
  std::vector<int> stop();  // returns all codes told

  void* handle = nullptr;

 private:
  static void on_status(int code, const char* message, void* user);
  std::mutex mutex;
  std::vector<int> codes;  // guarded by mutex
  bool stopped = false;    // guarded by mutex
};

}  // namespace zeva_test
