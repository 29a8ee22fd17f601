#include "zv2_output_context.h"

#include <algorithm>
#include <utility>

#include "av_error.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

constexpr int kTimeoutSec = 5;

constexpr int kMaxFlvPacketBytes = (1 << 24) - 1024;
constexpr int64_t kLongestDuration = INT32_MAX;  // that MP4 takes

enum OpenCode : int32_t { kSnapshotFailed = -7, kIoFailed = -32, kHeaderFailed = -33 };

// What waits for a stream is bounded, since a server may never read; a slow disk catches up.
constexpr int64_t kStreamKeepUs = 10000000;
constexpr int64_t kStreamKeepBytes = 64 << 20;
constexpr int64_t kFileKeepBytes = 256 << 20;

OutputPolicy packet_policy(const std::string& url, const ZevaOutputPolicy& host) {
  OutputPolicy::Defaults defaults;
  defaults.stream_full = OutputPolicy::WhenFull::kDrop;
  defaults.stream_limits.us = kStreamKeepUs;
  defaults.stream_limits.bytes = kStreamKeepBytes;
  defaults.file_limits.bytes = kFileKeepBytes;
  defaults.trailer_after_error = true;
  return {defaults, host, is_live_url(url.c_str())};
}

bool copy_rotation(const AVStream& source, AVStream* stream) {
  int size_bytes = 0;
  const uint8_t* const matrix =
      av_stream_get_side_data(&source, AV_PKT_DATA_DISPLAYMATRIX, &size_bytes);
  if (matrix == nullptr) return true;
  uint8_t* const copy = av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, size_bytes);
  if (copy != nullptr) std::copy_n(matrix, size_bytes, copy);
  return copy != nullptr;
}

}  // namespace

OutputContext::OutputContext(const std::string& url, const ZevaOutputPolicy& host_policy,
                             MovieOutput::Report report)
    : thread(url, packet_policy(url, host_policy), *this, std::move(report)) {
  thread.output.io.set_timeout(kTimeoutSec);
  // Also while connecting: a host may have written a whole movie and stopped before the inputs
  // were known, and the output is opened only then.
  thread.output.io.opened();
}

// ---- opening

Status OutputContext::open(const AVStream* video_stream, const AVStream* audio_stream,
                           const std::string& snapshot_path, const std::string& meta,
                           OpenFiles& files) {
  Status status = try_open(video_stream, audio_stream, snapshot_path, meta, files);
  if (status.ok || thread.output.io.exited() || !thread.policy.optional) return status;
  thread.leave_out(status.code, status.message);
  return Status::success();
}

Status OutputContext::try_open(const AVStream* video_stream, const AVStream* audio_stream,
                               const std::string& snapshot_path, const std::string& meta,
                               OpenFiles& files) {
  ZEVA_LOG(kLogInfo, "Output: %s", url().c_str());
  Status status = files.check(file_path(url()));
  if (status.ok) status = make_context();
  if (status.ok) thread.output.set_metadata(meta.c_str());
  if (status.ok) status = make_transcoder(audio_stream);
  if (status.ok) status = add_streams(video_stream, audio_stream);
  if (status.ok && thread.opens_itself()) {
    thread.note_streams();
    return status;
  }
  if (status.ok) status = open_io();
  if (status.ok) files.add(file_path(url()));
  if (status.ok) status = files.check(snapshot_path);
  if (status.ok) status = start_index(snapshot_path);
  if (status.ok) files.add(snapshot_path);
  if (status.ok) status = write_header();
  if (status.ok) thread.note_streams();
  return status;
}

Status OutputContext::make_context() {
  AVOutputFormat* format = guess_output_format(url().c_str());
  if (format == nullptr) {
    return Status::failure(AVERROR_UNKNOWN, "could not find suitable output format: " + url());
  }
  const int result = thread.output.create(format);
  if (result < 0) return Status::failure(result, av_error_text(result));
  flv = av_match_name("flv", format->name) != 0;
  if (is_rtsp_url(url().c_str())) thread.output.set_server_timeout(kTimeoutSec * 1000000);
  return Status::success();
}

Status OutputContext::make_transcoder(const AVStream* audio_stream) {
  if (!is_rtsp_url(url().c_str()) || audio_stream == nullptr) return Status::success();
  transcoder = std::make_unique<AacToOpus>();
  Status status = transcoder->init(audio_stream->codecpar);
  if (!status.ok) transcoder.reset();
  return status;
}

Status OutputContext::add_streams(const AVStream* video_stream, const AVStream* audio_stream) {
  Status status = Status::success();
  for (const AVStream* source : {video_stream, audio_stream}) {
    if (status.ok && source != nullptr) status = add_stream(*source);
  }
  return status;
}

// A stream's own parameters decide what it is, not the input that it came from.
Status OutputContext::add_stream(const AVStream& source) {
  const AVCodecParameters& par = *source.codecpar;
  const bool video = par.codec_type == AVMEDIA_TYPE_VIDEO && par.codec_id == AV_CODEC_ID_H264;
  const bool audio = par.codec_type == AVMEDIA_TYPE_AUDIO && par.codec_id == AV_CODEC_ID_AAC;
  if (!video && !audio) return Status::success();
  AVStream* stream = thread.output.add_stream();
  if (stream == nullptr) return Status::failure(AVERROR(ENOMEM), av_error_text(AVERROR(ENOMEM)));
  (video ? video_index : audio_index) = stream->index;
  const bool transcoded = audio && transcoder != nullptr;
  const int result =
      transcoded ? avcodec_parameters_from_context(stream->codecpar, transcoder->opus_encoder())
                 : avcodec_parameters_copy(stream->codecpar, &par);
  if (result < 0) return Status::failure(result, av_error_text(result));
  if (transcoded) {
    const AVRational opus_units = transcoder->time_base();
    stream->codecpar->initial_padding +=
        static_cast<int>(av_rescale_q(par.initial_padding, {1, par.sample_rate}, opus_units));
  }
  if (!copy_rotation(source, stream)) {
    return Status::failure(AVERROR(ENOMEM), av_error_text(AVERROR(ENOMEM)));
  }
  stream->time_base = transcoded ? transcoder->time_base() : source.time_base;
  return Status::success();
}

Status OutputContext::open_io() {
  const int result = thread.output.open_io();
  if (result >= 0) return Status::success();
  ZEVA_LOG(kLogError, "(%d)%s", result, av_error_text(result));
  return Status::failure(kIoFailed, "Failed to open I/O for '" + url() + "'");
}

Status OutputContext::start_index(const std::string& path) {
  if (path.empty()) return Status::success();
  ZEVA_LOG(kLogInfo, "Create Snapshot for '%s': '%s'", url().c_str(), path.c_str());
  const MovieOutput::IndexStart started = thread.output.start_index(path);
  if (started == MovieOutput::IndexStart::kNotOpened) {
    return Status::failure(kSnapshotFailed, "Snapshot open failed: " + path);
  }
  ZEVA_LOG(kLogError, "启动快照 (%s): %s",
           started == MovieOutput::IndexStart::kStarted ? "success" : "failed", path.c_str());
  return Status::success();
}

Status OutputContext::write_header() {
  const int result = thread.output.write_header();
  if (result >= 0) return Status::success();
  return Status::failure(kHeaderFailed, "Failed to write header for '" + url() + "' (" +
                                            std::to_string(result) + ")" + av_error_text(result));
}

// ---- the worker thread

bool OutputContext::enqueue(const AVPacket* packet, AVRational time_base, int stream_index) {
  if (stream_index < 0) return true;
  if (!takes_packets()) return !ends_recording();
  const PacketPtr clone(av_packet_clone(packet));
  if (!clone) return false;
  av_packet_rescale_ts(clone.get(), time_base, thread.queue.stream(stream_index)->time_base);
  clone->stream_index = stream_index;
  clone->duration = std::clamp<int64_t>(clone->duration, 0, kLongestDuration);
  if (!fits(*clone) || !grows(*clone)) return true;
  if (thread.put(*clone) == 0 || !ends_recording()) return true;
  ZEVA_LOG(kLogError, "*** '%s' enque failed, aborted (stream_idx=%d).", url().c_str(),
           stream_index);
  return false;
}

// A tag of FLV tells its length in 24 bits, and FFmpeg would refuse the packet.
bool OutputContext::fits(const AVPacket& packet) const {
  if (!flv || packet.size <= kMaxFlvPacketBytes) return true;
  ZEVA_LOG(kLogError, "a packet of %d bytes is left out of '%s': too long for FLV", packet.size,
           url().c_str());
  return false;
}

// Two times may become one in the output's own units, and FFmpeg would refuse the packet.
bool OutputContext::grows(const AVPacket& packet) {
  int64_t& last = last_times[static_cast<size_t>(packet.stream_index)];
  if (packet.dts <= last) {
    ZEVA_LOG(kLogError, "a packet of stream %d is left out of '%s': %lld is not behind %lld",
             packet.stream_index, url().c_str(), static_cast<long long>(packet.dts),
             static_cast<long long>(last));
    return false;
  }
  last = packet.dts;
  return true;
}

bool OutputContext::enqueue_video(const AVPacket* packet, AVRational time_base) {
  return enqueue(packet, time_base, video_index);
}

bool OutputContext::enqueue_audio(const AVPacket* packet, AVRational time_base) {
  if (!transcoder) return enqueue(packet, time_base, audio_index);
  const auto emit = [](AVPacket* opus, AVRational opus_time_base, void* self) {
    auto& output = *static_cast<OutputContext*>(self);
    return output.enqueue(opus, opus_time_base, output.audio_index);
  };
  return transcoder->transcode(packet, time_base, emit, this);
}

// ---- the writer thread

void OutputContext::on_end_of_packets(int64_t /*written*/) {
  ZEVA_LOG(kLogDebug, "-- pkt == nullptr, EOF");
}

// Streams that could not be known, or nothing but their beginning, make no movie.
void OutputContext::on_trailer(int64_t written) {
  const bool may_be_empty = thread.policy.optional || finished_early();
  if (written == 0 && !may_be_empty) fail("get a packet for", AVERROR_INVALIDDATA);
}

void OutputContext::on_write_error(int code) {
  ZEVA_LOG(kLogError, "Output thread Error(%d, %s): abort! %s", code, av_error_text(code),
           url().c_str());
  fail("write to", code);
}

void OutputContext::on_trailer_error(int code) {
  ZEVA_LOG(kLogError, "trailer of '%s': (%d) %s", url().c_str(), code, av_error_text(code));
  fail("finish", code);
}

void OutputContext::on_finished() {
  ZEVA_LOG(kLogInfo, "write thread finished: %s", url().c_str());
}

void OutputContext::fail(const char* what, int result) {
  if (!first_failure.ok) return;
  first_failure = Status::failure(result, std::string("Failed to ") + what + " '" + url() + "' (" +
                                              std::to_string(result) + ")" + av_error_text(result) +
                                              thread.output.fate());
}

// ---- the end

void OutputContext::finish() {
  if (transcoder) (void)enqueue_audio(nullptr, transcoder->time_base());
  thread.end();
}

void OutputContext::close() {
  thread.join();
  transcoder.reset();
  if (thread.output.context() == nullptr) return;
  ZEVA_LOG(kLogInfo, "close ofmt");
  const int result = thread.output.close();
  if (result >= 0 || thread.policy.optional) return;
  ZEVA_LOG(kLogError, "close of '%s': (%d) %s", url().c_str(), result, av_error_text(result));
  fail("finish", result);
}

}  // namespace zeva
