// One output of a recording or a repair: a file or a live stream, from its context to its close.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "av_handles.h"
#include "disk_room.h"
#include "file_io.h"
#include "io_interrupt.h"
#include "movie_times.h"
#include "path_watch.h"
#include "snapshot.h"

namespace zeva {

// No packet waits longer for a packet of another stream, which may have fallen silent: what waits
// is neither in the movie nor in its index, and a crash would take it along.
inline constexpr int kLongestHoldMs = 500;

// The only place that opens, writes and closes an output. Owns the muxer's context, its I/O, the
// deadline of a network output and the crash-safe index of a movie. Results are FFmpeg codes; the
// caller knows which step it asked for, and words it for its host.
//
// A file that was there before keeps its bytes until `commit`, which the first packet implies; an
// output that is closed without one leaves nothing behind. Every path closes everything: an RTSP
// session is torn down also after an error.
//
// The steps are called by one thread at a time, in the order below; `io`'s functions may be called
// from any thread.
class MovieOutput {
 public:
  // Gets reports that do not end the output (zeva/status.h), on the thread that writes or on the
  // disk thread; never after `close`.
  using Report = Snapshot::Report;

  // The calls that reach the disk; tests let them fail.
  struct DiskCalls {
    FileIo::Calls file;
    Snapshot::DiskCalls index;
  };

  explicit MovieOutput(std::string url, Report report = {})
      : MovieOutput(std::move(url), std::move(report), DiskCalls()) {}
  MovieOutput(std::string url, Report report, const DiskCalls& calls);
  ~MovieOutput() { (void)close(); }
  MovieOutput(const MovieOutput&) = delete;
  MovieOutput& operator=(const MovieOutput&) = delete;

  // ---- opening

  // Makes the muxer's context. RTSP goes over TCP.
  [[nodiscard]] int create(AVOutputFormat* format);
  // `timeout_us` above 0 bounds the muxer's own waits for a live server.
  void set_server_timeout(int64_t timeout_us);
  // "key:value;key:value"; pairs that name an option of the muxer act as one.
  void set_metadata(const char* text);
  // Null without memory. The stream belongs to the output.
  AVStream* add_stream();
  // A file is to end while that much of its disk stays free. Before the packets.
  void keep_free(int64_t bytes) { disk.keep_free(kept_free_bytes = bytes); }
  // Opens the file or connects. Prints the layout to FFmpeg's log.
  [[nodiscard]] int open_io();
  enum class IndexStart { kNotOpened, kNotAttached, kStarted };
  [[nodiscard]] IndexStart start_index(const std::string& path);
  [[nodiscard]] int write_header();

  // ---- live streams, again and again

  // Connects and writes the header.
  [[nodiscard]] int open();
  // True while nothing of the context has been used: `open` may be called.
  bool is_fresh() const { return oc != nullptr && !progress.opened; }
  // Closes what there is and makes a context like the first one, for the next connection.
  [[nodiscard]] int renew();

  // ---- packets

  // Lets the output take the place of an older file.
  [[nodiscard]] int commit();
  // Writes a packet with interleaving and takes over its reference, also on failure. It is held
  // back until the other streams have one as well, but for no more than kLongestHoldMs of movie
  // time, longer only at the start of FLV (MovieTimes::is_starting); the caller sees to it that it
  // is not for longer by the clock. AVERROR(ENOSPC) before the
  // disk is so full that the trailer would not fit, or too little would stay free: the movie can be
  // finished then. A packet that the muxer refuses, for its time or its bytes, is left out and
  // reported, and is no failure.
  [[nodiscard]] int write(AVPacket* packet);
  // Writes what is held back, but not at the start of FLV, and lets the system have all of it.
  [[nodiscard]] int write_held();
  // Writes a packet without interleaving; the packet's data stays the caller's.
  [[nodiscard]] int write_in_order(AVPacket* packet);
  // Finishes the movie, also after a write error: when the disk takes what it refused then, nothing
  // is lost. An output that got no packet has nothing to be finished.
  [[nodiscard]] int write_trailer();

  // ---- the disk of a file

  // Once a second or so, also while no packets come: asks for the free space, and reports a movie
  // or index whose path leads to another file or none by now. AVERROR(ENOSPC) when too little is
  // free for the file to go on.
  [[nodiscard]] int watch_disk();
  bool is_watched() const { return disk.is_watching(); }
  // By the latest answer of the system; -1 for none.
  int64_t disk_free_bytes() const { return disk.free_bytes(); }
  // True when the file takes no more packets, since too little of its disk would stay free.
  bool is_at_guard() const { return shortage == Shortage::kGuard; }
  // Reports that such a file was finished, and what it holds.
  void tell_finished_early() const;

  // Any thread: the movie times that a crash of the program and a power failure would leave. -1
  // without an index, `synced_us` also before the disk has confirmed anything, `recorded_us` also
  // once the index is closed.
  int64_t recorded_us() const;
  int64_t synced_us() const;

  // ---- the end

  // Closes file or connection and the index, so that others can have them while the recording goes
  // on. The code of the first thing that could not be written.
  int close_files();
  // Closes everything; safe to call again. The same code.
  int close();

  const std::string& url() const { return output_url; }
  AVFormatContext* context() const { return oc.get(); }
  bool is_network() const;
  // True when the disk had no room for another packet and the trailer behind it.
  bool is_full() const { return shortage != Shortage::kNone; }
  // True when the trailer is worth a try after a write error.
  bool can_be_finished() const { return file != nullptr || is_full(); }
  // The fate of the movie after a write error, as the end of a sentence that reports the error.
  std::string fate() const;
  // True when the system took no more bytes; it never will again.
  bool is_broken() const { return io_error() < 0; }

  IoInterrupt io;

 private:
  // Of one opening, from the context to the close.
  struct Progress {
    bool opened = false;
    bool header_written = false;
    bool trailer_tried = false;
    MovieTimes times;
    int64_t packets = 0;
    int refused_in_a_row = 0;
    int64_t payload_bytes = 0;
  };

  enum class Shortage { kNone, kGuard, kFull };

  bool muxer_does_io() const { return (oc->oformat->flags & AVFMT_NOFILE) != 0; }
  void prepare_context();
  void note_pattern();
  [[nodiscard]] int begin_packet(const AVPacket& packet);
  int io_error() const;
  int64_t end_with(int64_t packet_bytes, int packets) const;
  int64_t own_bytes() const;
  int64_t room_left(int64_t end_bytes);
  bool has_room_for(const AVPacket& packet);
  void watch_paths();
  void leave_out(const std::string& why);
  bool write_interleaved(AVPacket* packet, int& result);
  int close_io();
  void correct_duration(int64_t table);

  const std::string output_url;
  const Report report;
  const DiskCalls calls;
  FormatContextPtr oc;
  FormatContextPtr pattern;  // of a network output's next connection; never opened
  int64_t server_timeout_us = 0;
  std::unique_ptr<FileIo> file;  // of a regular file
  std::unique_ptr<Snapshot> snapshot;
  std::atomic<const Snapshot*> started_index{nullptr};  // `snapshot`, for any thread
  std::string index_path;
  Progress progress;
  DiskRoom disk;
  int64_t kept_free_bytes = 0;
  Shortage shortage = Shortage::kNone;
  PathWatch paths;
  int64_t left_out = 0;  // of the packets
};

// True when the muxer writes MP4 or one of its relatives (MOV, M4A, 3GP): such a file cannot be
// played without its trailer, and is what the crash-safe index is for.
bool needs_index(const AVOutputFormat& format);

}  // namespace zeva
