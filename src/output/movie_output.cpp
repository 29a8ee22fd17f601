#include "movie_output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "av_error.h"
#include "context_copy.h"
#include "files.h"
#include "host_lookup.h"
#include "logger.h"
#include "output_url.h"
#include "zeva/status.h"

namespace zeva {
namespace {

// An upper bound of what a trailer needs: for each packet its entries in the tables of sizes,
// chunks, offsets, times and key pictures (ISO/IEC 14496-12, 8.6 and 8.7), and the rest.
constexpr int64_t kTrailerBytesPerPacket = 48;
constexpr int64_t kTrailerBytes = 128 * 1024;
// Kept free where space cannot be set aside: what the system says may be a little old.
constexpr int64_t kUnreservedBytes = 4 * 1024 * 1024;

// A muxer that refused so many packets in a row will take none any more.
constexpr int kMostRefusals = 1000;

}  // namespace

bool needs_index(const AVOutputFormat& format) {
  return av_match_name(format.name, "mp4,mov,ipod,3gp,3g2,psp,f4v") != 0;
}

MovieOutput::MovieOutput(std::string url, Report report, const DiskCalls& calls)
    : output_url(std::move(url)), report(std::move(report)), calls(calls) {}

bool MovieOutput::is_network() const { return is_network_url(output_url.c_str()); }

// ---- opening

int MovieOutput::create(AVOutputFormat* format) {
  AVFormatContext* made = nullptr;
  const int result = avformat_alloc_output_context2(&made, format, nullptr, output_url.c_str());
  oc.reset(made);
  if (result < 0) return result;
  if (oc == nullptr) return AVERROR_UNKNOWN;
  prepare_context();
  return 0;
}

void MovieOutput::prepare_context() {
  // A file is never interrupted: what was recorded must be written.
  if (is_network()) oc->interrupt_callback = io.callback();
  if (is_rtsp_url(output_url.c_str())) av_opt_set(oc->priv_data, "rtsp_transport", "tcp", 0);
  if (server_timeout_us > 0) av_opt_set_int(oc->priv_data, "stimeout", server_timeout_us, 0);
}

void MovieOutput::set_server_timeout(int64_t timeout_us) {
  server_timeout_us = timeout_us;
  prepare_context();
}

void MovieOutput::set_metadata(const char* text) {
  if (text == nullptr || text[0] == '\0') return;
  err_print(stderr, "== MetaInfo: %s\n\n", text);
  for (const auto& [key, value] : parse_metadata(text)) {
    err_print(stderr, "%s ---> %s\n", key.c_str(), value.c_str());
    av_dict_set(&oc->metadata, key.c_str(), value.c_str(), 0);
  }
}

AVStream* MovieOutput::add_stream() { return avformat_new_stream(oc.get(), nullptr); }

// Before FFmpeg writes into the context.
void MovieOutput::note_pattern() {
  if (is_network() && pattern == nullptr) pattern = copy_context(*oc);
}

int MovieOutput::open() {
  note_pattern();
  const int result = open_io();
  return result < 0 ? result : write_header();
}

int MovieOutput::renew() {
  (void)close();
  progress = {};
  io.begin_session();
  if (pattern != nullptr) oc = copy_context(*pattern);
  if (oc == nullptr) return AVERROR(ENOMEM);
  prepare_context();
  return 0;
}

int MovieOutput::open_io() {
  progress.opened = true;
  av_dump_format(oc.get(), 0, output_url.c_str(), 1);
  io.begin_operation();
  // Or the process would print its log lines into the movie.
  occupy_standard_descriptors();
  if (is_network() && !find_host(output_url, io)) return AVERROR_EXIT;
  const std::string path = file_path(output_url);
  // Pipes and devices hold nothing that could be lost.
  const bool regular = !path.empty() && (!file_exists(path) || file_size(path) >= 0);
  if (regular) disk.watch(path, calls.file.free_bytes);
  if (muxer_does_io()) return 0;
  if (!regular) {
    return avio_open2(&oc->pb, output_url.c_str(), AVIO_FLAG_WRITE, &oc->interrupt_callback,
                      nullptr);
  }
  file = std::make_unique<FileIo>(calls.file);
  const int result = file->open(path);
  if (result >= 0) oc->pb = file->context();
  return result;
}

MovieOutput::IndexStart MovieOutput::start_index(const std::string& path) {
  auto started = std::make_unique<Snapshot>(report, calls.index);
  if (!started->open(path.c_str())) return IndexStart::kNotOpened;
  const bool attached = started->attach(oc.get());
  snapshot = std::move(started);
  started_index = snapshot.get();
  index_path = path;
  return attached ? IndexStart::kStarted : IndexStart::kNotAttached;
}

int MovieOutput::write_header() {
  note_pattern();
  io.begin_operation();
  // The metadata serves as the options too; what the muxer does not know as one stays metadata.
  const int result = avformat_write_header(oc.get(), &oc->metadata);
  progress.header_written = result >= 0;
  return result;
}

// ---- packets

int MovieOutput::commit() {
  // The index first: an older one must never stand beside the bytes of this movie.
  const int result = snapshot != nullptr ? snapshot->commit() : 0;
  if (result < 0) ZEVA_LOG(kLogError, "index of '%s': %s", url().c_str(), av_error_text(result));
  return file != nullptr ? file->commit() : 0;
}

int MovieOutput::begin_packet(const AVPacket& packet) {
  io.begin_operation();
  // Before an older file is replaced.
  if (room_left(end_with(packet.size, 1)) < 0) return AVERROR(ENOSPC);
  if (progress.packets == 0) {
    const int result = commit();
    if (result < 0) return result;
  }
  if (!has_room_for(packet)) return AVERROR(ENOSPC);
  ++progress.packets;
  progress.payload_bytes += packet.size;
  progress.times.note(*oc, packet);
  return 0;
}

int MovieOutput::write(AVPacket* packet) {
  if (progress.packets == 0) progress.times.begin(*oc);
  if (!progress.times.fit(*oc, *packet)) {
    leave_out("its time lies before the beginning or the packet before it");
    av_packet_unref(packet);
    return 0;
  }
  oc->max_interleave_delta = progress.times.is_starting() ? 0 : kLongestHoldMs * 1000;  // 0: none
  int result = begin_packet(*packet);
  if (result >= 0) (void)write_interleaved(packet, result);
  if (result < 0) av_packet_unref(packet);
  return result;
}

// Gives the muxer a packet, or with null all that it holds back. False when it refused one, which
// need not be this one; those behind it are still held back.
bool MovieOutput::write_interleaved(AVPacket* packet, int& result) {
  result = io.result_of_operation(av_interleaved_write_frame(oc.get(), packet));
  const bool refused = result == AVERROR(EINVAL) || result == AVERROR_INVALIDDATA;
  if (result >= 0) result = io_error();
  progress.refused_in_a_row = refused ? progress.refused_in_a_row + 1 : 0;
  if (!refused || is_broken() || progress.refused_in_a_row > kMostRefusals) return true;
  leave_out(av_error_text(result));
  result = 0;
  return false;
}

void MovieOutput::leave_out(const std::string& why) {
  const std::string text = "a packet is left out of '" + url() + "': " + why;
  ZEVA_LOG(kLogError, "%s", text.c_str());
  if (left_out++ == 0 && report) report(kZevaStatusPacketsLeftOut, text);
}

int MovieOutput::write_held() {
  if (progress.times.is_starting()) return 0;
  io.begin_operation();
  int result = 0;
  while (!write_interleaved(nullptr, result)) {
  }
  if (result < 0 || snapshot == nullptr || progress.packets == 0) return result;
  snapshot->flush(*oc);
  return io_error();
}

int MovieOutput::write_in_order(AVPacket* packet) {
  const int result = begin_packet(*packet);
  if (result < 0) return result;
  const int written = io.result_of_operation(av_write_frame(oc.get(), packet));
  return written < 0 ? written : io_error();
}

// FileIo keeps its errors from FFmpeg.
int MovieOutput::io_error() const {
  if (file != nullptr) return file->error();
  return oc != nullptr && oc->pb != nullptr ? oc->pb->error : 0;
}

int MovieOutput::write_trailer() {
  if (!progress.header_written || progress.trailer_tried) return 0;
  progress.trailer_tried = true;
  if (file != nullptr && !file->is_committed()) return 0;
  const int retried = file != nullptr ? file->retry() : 0;
  if (retried < 0) return retried;
  const bool has_table = file != nullptr && needs_index(*oc->oformat);
  if (has_table) (void)write_held();  // so that the table comes next
  const int64_t table = has_table ? avio_tell(oc->pb) : 0;
  io.begin_operation();
  const int result = io.result_of_operation(av_write_trailer(oc.get()));
  if (result < 0 || oc->pb == nullptr) return result;
  avio_flush(oc->pb);
  if (has_table && !is_broken()) correct_duration(table);
  return io_error();  // a full disk is no success, although the muxer may say so
}

// FFmpeg 4.x counts an encoder's first samples, which players skip, as part of the movie, and not
// the time before a stream that begins late. The movie header box (ISO/IEC 14496-12, 8.2.2) is the
// first one of the table, unless the host's options put that elsewhere.
void MovieOutput::correct_duration(int64_t table) {
  constexpr int kDurationAt = 32;
  uint8_t box[kDurationAt] = {};
  if (!file->read(table, box, sizeof box)) return;
  const bool found = memcmp(box + 4, "moov", 4) == 0 && memcmp(box + 12, "mvhd\0", 5) == 0;
  const auto timescale =
      static_cast<uint32_t>(box[28] << 24 | box[29] << 16 | box[30] << 8 | box[31]);
  if (!found || timescale == 0) return;
  const int64_t end = avio_tell(oc->pb);
  avio_seek(oc->pb, table + kDurationAt, SEEK_SET);
  avio_wb32(oc->pb, static_cast<uint32_t>(av_rescale(progress.times.end_us(), timescale, 1000000)));
  avio_seek(oc->pb, end, SEEK_SET);
  avio_flush(oc->pb);
}

// ---- the disk

// Everything that the muxer was given, more packets, and the trailer behind them.
int64_t MovieOutput::end_with(int64_t packet_bytes, int packets) const {
  const int64_t trailer = kTrailerBytes + (progress.packets + packets) * kTrailerBytesPerPacket;
  const int64_t told = file != nullptr ? avio_tell(oc->pb) : 0;
  return std::max(told, progress.payload_bytes) + packet_bytes + trailer;
}

int64_t MovieOutput::own_bytes() const {
  return file != nullptr ? file->own_bytes() : progress.payload_bytes;
}

// Negative when the file must not become so long.
int64_t MovieOutput::room_left(int64_t end_bytes) {
  const int64_t left = disk.left(end_bytes, own_bytes());
  if (left < 0) shortage = kept_free_bytes > 0 ? Shortage::kGuard : Shortage::kFull;
  return is_full() ? -1 : left;
}

bool MovieOutput::has_room_for(const AVPacket& packet) {
  if (file == nullptr) return true;
  const int64_t end = end_with(packet.size, 1);
  if (!file->ensure_room(end, room_left(end))) shortage = Shortage::kFull;
  if (!file->reserves()) disk.keep_free(std::max(kept_free_bytes, kUnreservedBytes));
  return !is_full();
}

int MovieOutput::watch_disk() {
  if (oc == nullptr || !disk.is_due()) return 0;
  watch_paths();
  // A file that has not begun is judged by its first packet.
  const int64_t end = end_with(0, 0);
  const int64_t left = progress.packets == 0 ? disk.left(end, own_bytes()) : room_left(end);
  return progress.packets > 0 && left < 0 ? AVERROR(ENOSPC) : 0;
}

void MovieOutput::watch_paths() {
  if (file != nullptr && file->is_committed()) {
    paths.look_at_movie(file->path_state(), url(), report);
  }
  if (snapshot != nullptr) {
    paths.look_at_index(snapshot->index_state(), index_path, url(), report);
  }
}

void MovieOutput::tell_finished_early() const {
  char text[200];
  snprintf(text, sizeof text,
           "' is finished early: %lld bytes of its disk are free, and %lld are to stay free; it "
           "holds %.3f s in %lld packets",
           static_cast<long long>(disk.free_bytes()), static_cast<long long>(kept_free_bytes),
           static_cast<double>(progress.times.end_us()) / 1e6,
           static_cast<long long>(progress.packets));
  ZEVA_LOG(kLogWarning, "'%s%s", url().c_str(), text);
  if (report) report(kZevaStatusFileFinishedEarly, "'" + url() + text);
}

int64_t MovieOutput::recorded_us() const {
  const Snapshot* const index = started_index;
  return index != nullptr ? index->recorded_us() : -1;
}

int64_t MovieOutput::synced_us() const {
  const Snapshot* const index = started_index;
  return index != nullptr ? index->synced_us() : -1;
}

// ---- the end

std::string MovieOutput::fate() const {
  if (is_full()) return "; it is finished with what fitted";
  if (snapshot != nullptr) return "; its index '" + index_path + "' can bring it back";
  return {};
}

int MovieOutput::close() {
  if (oc == nullptr) return 0;
  // Only its trailer ends the session of a muxer that does its own I/O.
  if (muxer_does_io()) (void)write_trailer();
  const int result = close_files();
  oc.reset();
  if (snapshot != nullptr) ZEVA_LOG(kLogInfo, "delete moov OK");
  return result;
}

int MovieOutput::close_files() {
  const int result = close_io();
  if (snapshot != nullptr) (void)snapshot->end();
  if (is_full()) disk.ask_again();  // what was set aside and not used is free again
  return result;
}

int MovieOutput::close_io() {
  io.begin_operation();
  if (file == nullptr) return muxer_does_io() ? 0 : avio_closep(&oc->pb);
  oc->pb = nullptr;
  const int result = file->close();
  file.reset();
  return result;
}

}  // namespace zeva
