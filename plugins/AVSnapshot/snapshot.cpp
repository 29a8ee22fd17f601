#include "snapshot.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "clock.h"
#include "logger.h"
#include "muxer_hooks.h"
#include "output_url.h"
#include "zeva/status.h"

namespace zeva {
namespace {

// In the time of the recording, which the movie may be behind.
int64_t end_us_of(const AVFormatContext& oc, const AVPacket& packet) {
  const AVRational time_base = oc.streams[packet.stream_index]->time_base;
  return av_rescale_q(packet.pts + packet.duration, time_base, {1, AV_TIME_BASE}) -
         oc.output_ts_offset;
}

}  // namespace

Snapshot::Snapshot(Report report, DiskCalls calls)
    : report(std::move(report)),
      index(calls.write),
      disk([this](const std::string& text) { report_status(kZevaStatusSyncFailing, text); },
           calls.sync) {
  MuxerHooks::add(*this);
}

Snapshot::~Snapshot() { (void)end(); }

bool Snapshot::open(const char* path) {
  if (index.is_open()) {
    ZEVA_LOG(kLogError, "already opened !");
    return false;
  }
  return path != nullptr && index.open(path) == 0;
}

bool Snapshot::attach(AVFormatContext* oc) {
  if (!index.is_open()) {
    ZEVA_LOG(kLogError, "---> moov: fp is nullptr!");
    return false;
  }
  if (oc == nullptr) {
    ZEVA_LOG(kLogError, "---> moov: oc==null");
    return false;
  }
  if (oc->pb == nullptr) {
    ZEVA_LOG(kLogError, "---> moov: pb==null, not support");
    return false;
  }
  return MuxerHooks::install(*oc, *this);
}

void Snapshot::header_written(const AVFormatContext& oc) {
  std::string head = index_header_line();
  std::string line;
  int audio_index = -1, frame_size = 0;
  for (unsigned i = 0; i < oc.nb_streams; ++i) {
    const AVStream& stream = *oc.streams[i];
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
      audio_index = stream.index;
      frame_size = stream.codecpar->frame_size;
    }
    // A stream of another type repeats the line before it, so that readers which count lines see
    // one for every stream.
    const std::string built = index_stream_line(stream);
    if (!built.empty()) line = built;
    head += line + "\n";
  }
  index.set_head(std::move(head));
  encoder = RecordEncoder(audio_index, frame_size);
  movie_path = file_path(oc.url != nullptr ? oc.url : "");
}

int Snapshot::commit() {
  if (!index.has_head()) return AVERROR(EINVAL);
  const bool was_committed = index.is_committed();
  const int error = index.commit();
  if (!was_committed && index.is_committed())
    disk.start({movie_path, index.path()}, index.replaces_older());
  return judge_write(error) ? 0 : AVERROR(error);
}

void Snapshot::packet_coming(const AVFormatContext& oc, const AVPacket& packet, int64_t position) {
  if (ended || !index.has_head()) return;
  if (!index.is_committed()) (void)commit();
  keep_packet_in_one_write(oc, packet);
  IndexedPacket coming;
  coming.stream_index = packet.stream_index;
  coming.position = position;
  coming.pts = packet.pts;
  coming.dts = packet.dts;
  coming.duration = packet.duration;
  coming.key = (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (record(oc, packet, coming)) hand_over(oc);
}

// False for the first packet, which has its record only when the second comes.
bool Snapshot::record(const AVFormatContext& oc, const AVPacket& packet,
                      const IndexedPacket& coming) {
  const int64_t recorded_us = std::exchange(coming_end_us, end_us_of(oc, packet));
  IndexRecord made;
  if (!index.has_room()) {
    encoder.push_unrecorded(coming);
  } else if (encoder.push(coming, made)) {
    index.append(made);
    pending_end_us = std::max(pending_end_us, recorded_us);
  } else {
    return false;
  }
  return true;
}

void Snapshot::packet_refused() {
  encoder.take_back();
  coming_end_us = 0;
}

// A power failure may take one write and leave the next: half a packet is hard to tell from a whole
// one, none of it is not.
void Snapshot::keep_packet_in_one_write(const AVFormatContext& oc, const AVPacket& packet) {
  const int64_t room = oc.pb->buffer + oc.pb->buffer_size - oc.pb->buf_ptr;
  if (packet.size > room) avio_flush(oc.pb);
}

void Snapshot::hand_over(const AVFormatContext& oc) {
  const int64_t now = steady_us();
  if (!index.is_line_full() && now < next_hand_over) return;
  next_hand_over = now + kIndexHandOverMs * 1000;
  flush(oc);
}

void Snapshot::flush(const AVFormatContext& oc) {
  // The movie's bytes go first: a record must not tell of bytes that died in FFmpeg's buffer.
  avio_flush(oc.pb);
  if (judge_write(index.write())) recorded_end_us = pending_end_us;
  disk.request(recorded_end_us);
}

// Reports a change, not every write: a full disk stays full for a while.
bool Snapshot::judge_write(int error) {
  const bool failed = error != 0;
  if (failed == std::exchange(failing, failed)) return !failed;
  const std::string text = failed ? "the index cannot be written: " + index.path() + ": " +
                                        std::generic_category().message(error)
                                  : "the index is written again: " + index.path();
  ZEVA_LOG(kLogError, "%s", text.c_str());
  report_status(failed ? kZevaStatusIndexFailing : kZevaStatusIndexBack, text);
  return !failed;
}

bool Snapshot::end() {
  if (std::exchange(ended, true)) return on_disk;
  MuxerHooks::remove(*this);
  if (!index.is_open()) return false;
  const bool complete = index.is_committed() && judge_write(index.write());
  if (complete) disk.request(pending_end_us);
  recorded_end_us = -1;
  const int error = index.close();
  if (complete && error != 0) (void)judge_write(error);
  on_disk = disk.end() && complete && error == 0;
  return on_disk;
}

void Snapshot::report_status(int32_t code, const std::string& text) const {
  if (report) report(code, text);
}

}  // namespace zeva
