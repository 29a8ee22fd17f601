// Writes the crash-safe index of a movie while the movie is muxed.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "disk_sync.h"
#include "ffmpeg.h"
#include "index_file.h"
#include "record_coder.h"

namespace zeva {

// Records every packet that FFmpeg hands to the muxer of an output context, whichever call wrote
// it. Owns the index; FFmpeg's context stays the caller's. Order of use: construct, open, attach
// (I/O open, header not yet written), avformat_write_header, commit, packets, av_write_trailer,
// the movie's I/O closed, end. The hooks run on the thread that drives the muxer; one thread at a
// time calls the rest. Call `end`, or destroy the object, only when no muxer call can be under way.
//
// Records are handed to the operating system when their line is full, and before that once
// kIndexHandOverMs have passed, each time after the movie's bytes that they describe: at few
// packets a second a line takes seconds to fill. DiskSync takes both from there to the disk.
//
// While the index cannot be written, the records of one line are kept; later packets get none.
// Every hand-over tries again, and the first record after such a hole carries its own position.
class Snapshot {
 public:
  // `code` is one of kZevaStatusIndexFailing, kZevaStatusIndexBack and kZevaStatusSyncFailing;
  // `text` names the file and the system's error. Called on the muxing thread, or on the disk's at
  // the same time, never after `end` or the destructor has returned.
  using Report = std::function<void(int32_t code, const std::string& text)>;

  // The calls that reach the disk; tests let them fail.
  struct DiskCalls {
    IndexFile::Write write = fwrite;
    DiskSync::Sync sync = sync_file;
  };

  explicit Snapshot(Report report = {}) : Snapshot(std::move(report), DiskCalls()) {}
  Snapshot(Report report, DiskCalls calls);
  virtual ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  // Creates an empty index at the UTF-8 path; an existing one keeps its bytes until `commit`, and a
  // new one goes away without it. False when that fails or when one is open.
  bool open(const char* path);

  // Binds the object to `oc`, whose `opaque` then belongs to it. False, with a log line, when no
  // index is open, there is no context, or the muxer does its own I/O.
  bool attach(AVFormatContext* oc);

  // Writes what the movie's header made known. An index that it replaces is off the disk when the
  // call returns, so that it cannot come back beside the new movie after a power failure. 0 or an
  // FFmpeg code: AVERROR(EINVAL) before the header, AVERROR(errno) when the index cannot be
  // written; recording may go on, the index is tried again. The first packet does this if nobody
  // has.
  int commit();

  // Hands everything to the operating system now. Packets go on.
  void flush(const AVFormatContext& oc);

  // Any thread: the movie time at which the newest packet ends whose record the operating system
  // has, 0 before there is one; -1 once the index is closed.
  int64_t recorded_us() const { return recorded_end_us; }
  // The same of the disk, as far as it has confirmed; -1 before it has.
  int64_t synced_us() const { return disk.synced(); }

  // Where the index's path leads to.
  PathState index_state() const { return index.state(); }

  // Writes and closes the index. True when all of it and of the movie is on the disk.
  bool end();

  // For the muxer hooks: after the muxer wrote its header, and before it writes a packet from
  // `position` on.
  void header_written(const AVFormatContext& oc);
  void packet_coming(const AVFormatContext& oc, const AVPacket& packet, int64_t position);
  // The muxer did not write that packet after all.
  void packet_refused();

 private:
  static void keep_packet_in_one_write(const AVFormatContext& oc, const AVPacket& packet);
  bool record(const AVFormatContext& oc, const AVPacket& packet, const IndexedPacket& coming);
  void hand_over(const AVFormatContext& oc);
  bool judge_write(int error);
  void report_status(int32_t code, const std::string& text) const;

  const Report report;
  IndexFile index;
  RecordEncoder encoder;
  std::string movie_path;      // empty when the movie is no file
  int64_t next_hand_over = 0;  // on the performance counter
  int64_t coming_end_us = 0;   // of the packet that has no record yet
  int64_t pending_end_us = 0;  // of those whose record is in the index's text
  std::atomic<int64_t> recorded_end_us{0};
  bool failing = false;  // the index took no text when it was given some last
  bool ended = false;
  bool on_disk = false;  // the answer of `end`
  DiskSync disk;         // last: its thread reports through the rest
};

}  // namespace zeva
