// Writes the crash-safe index of a movie while the movie is muxed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "disk_sync.h"
#include "index_format.h"

namespace zeva {

// Hooks the muxer's header and packet entries of an output context, so that every packet FFmpeg
// hands to the muxer is recorded, whichever call wrote it. Owns the index file and the line buffer;
// FFmpeg's context stays the caller's. Order of use: construct, open, attach (I/O open, header not
// yet written), avformat_write_header, packets, av_write_trailer, destroy. open, attach and the
// destructor are called by one thread, the hooks run on the thread that drives the muxer; destroy
// the object only when no muxer call can be under way.
//
// A packet's size is known when the next one comes, so records are one packet late and the last
// packet of a movie has none. Records are handed to the operating system when their line is full,
// and before that once kIndexHandOverMs have passed, each time behind the bytes of the movie they
// tell of: few packets a second would else wait seconds for a full line. DiskSync takes both from
// there to the disk.
class Snapshot {
 public:
  using Report = std::function<void(int32_t code, const std::string& text)>;
  explicit Snapshot(Report report = {});
  int commit() { return 0; }
  virtual ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  // Creates or truncates the index at the UTF-8 path. False when that fails or when one is open.
  bool open(const char* path);

  // Binds the object to `oc`, whose `opaque` then belongs to it. False, with a log line, when no
  // index is open, there is no context, or the muxer does its own I/O.
  bool attach(AVFormatContext* oc);

 private:
  friend struct SnapshotHooks;

  // What is kept of the packet that the muxer saw last, until its size is known.
  struct PreviousPacket {
    int32_t stream_index = 0;
    int32_t key = 0;
    int64_t position = 0;
    int64_t pts_delta = 0;
    int64_t dts_delta = 0;
    int64_t duration = 0;
  };
  struct LastTimes {
    int64_t pts = 0;
    int64_t dts = 0;
  };

  void write_stream_lines(const AVFormatContext& oc);
  void record_previous(const AVFormatContext& oc, const AVPacket& current, int64_t position);
  void remember(const AVPacket& packet, int64_t position);
  void hand_over(const AVFormatContext& oc);
  void write_line_text();
  bool is_audio(const AVPacket& packet) const { return packet.stream_index == audio_stream_index; }

  FILE* index_file = nullptr;
  std::string index_path;
  DiskSync disk;
  char line_buffer[kIndexLineBytes + kIndexRecordMaxBytes + 1] = {};
  int line_length = 0;
  int line_written = 0;        // bytes of line_buffer that the file has
  int64_t next_hand_over = 0;  // steady_us
  int32_t packets_seen = 0;
  PreviousPacket previous;
  LastTimes last_audio;
  LastTimes last_video;  // of every stream that is not the audio stream
  int32_t video_stream_index = -1;
  int32_t audio_stream_index = -1;
};

}  // namespace zeva
