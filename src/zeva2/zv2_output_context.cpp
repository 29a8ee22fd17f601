#include "zv2_output_context.h"

#include <utility>

#include "av_error.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

constexpr int kTimeoutSec = 5;
constexpr int kVideoRefused = -101;
constexpr int kAudioRefused = -102;

enum OpenCode : int32_t { kSnapshotFailed = -7, kIoFailed = -32, kHeaderFailed = -33 };

}  // namespace

OutputContext::OutputContext() : packets([](AVPacket*& packet) { av_packet_free(&packet); }) {
  io.set_timeout(kTimeoutSec);
  // Also while connecting: a host may have written a whole movie and stopped before the inputs
  // were known, and the output is opened only then.
  io.opened();
}

OutputContext::~OutputContext() { close(); }

// ---- opening

Status OutputContext::open(const AVStream* video_stream, const AVStream* audio_stream,
                           const std::string& output_url, const std::string& snapshot_path,
                           const std::string& meta) {
  url = output_url;
  ZEVA_LOG(kLogInfo, "Output: %s", url.c_str());
  Status status = open_snapshot(snapshot_path);
  if (status.ok) status = make_context();
  if (status.ok) set_metadata(meta);
  if (status.ok) status = set_rtsp_options(audio_stream);
  if (status.ok) status = add_streams(video_stream, audio_stream);
  if (status.ok) status = open_io();
  if (status.ok) attach_snapshot(snapshot_path);
  if (status.ok) status = write_header();
  if (status.ok) thread = std::thread(&OutputContext::write_loop, this);
  return status;
}

Status OutputContext::open_snapshot(const std::string& path) {
  if (path.empty()) return Status::success();
  ZEVA_LOG(kLogInfo, "Create Snapshot for '%s': '%s'", url.c_str(), path.c_str());
  snapshot = std::make_unique<Snapshot>();
  if (snapshot->open(path.c_str())) return Status::success();
  snapshot.reset();
  return Status::failure(kSnapshotFailed, "Snapshot open failed: " + path);
}

Status OutputContext::make_context() {
  AVOutputFormat* format = guess_output_format(url.c_str());
  if (format == nullptr) {
    return Status::failure(AVERROR_UNKNOWN, "could not find suitable output format: " + url);
  }
  AVFormatContext* made = nullptr;
  const int result = avformat_alloc_output_context2(&made, format, nullptr, url.c_str());
  if (result < 0) return Status::failure(result, av_error_text(result));
  oc.reset(made);
  return Status::success();
}

void OutputContext::set_metadata(const std::string& meta) {
  if (meta.empty()) return;
  err_print(stderr, "== MetaInfo: %s\n\n", meta.c_str());
  for (const auto& [key, value] : parse_metadata(meta)) {
    err_print(stdout, "%s ---> %s\n", key.c_str(), value.c_str());
    av_dict_set(&oc->metadata, key.c_str(), value.c_str(), 0);
  }
}

Status OutputContext::set_rtsp_options(const AVStream* audio_stream) {
  if (!is_rtsp_url(url.c_str())) return Status::success();
  av_dict_set(&oc->metadata, "rtsp_transport", "tcp", 0);
  av_dict_set_int(&oc->metadata, "stimeout", kTimeoutSec * 1000000, 0);
  if (audio_stream == nullptr) return Status::success();
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

// What a stream is, its parameters tell, not the input that it came from.
Status OutputContext::add_stream(const AVStream& source) {
  const AVCodecParameters& par = *source.codecpar;
  const bool video = par.codec_type == AVMEDIA_TYPE_VIDEO && par.codec_id == AV_CODEC_ID_H264;
  const bool audio = par.codec_type == AVMEDIA_TYPE_AUDIO && par.codec_id == AV_CODEC_ID_AAC;
  if (!video && !audio) return Status::success();
  AVStream* stream = avformat_new_stream(oc.get(), nullptr);
  if (stream == nullptr) return Status::failure(AVERROR(ENOMEM), av_error_text(AVERROR(ENOMEM)));
  (video ? video_index : audio_index) = stream->index;
  const bool transcoded = audio && transcoder != nullptr;
  const int result =
      transcoded ? avcodec_parameters_from_context(stream->codecpar, transcoder->opus_encoder())
                 : avcodec_parameters_copy(stream->codecpar, &par);
  if (result < 0) return Status::failure(result, av_error_text(result));
  stream->time_base = transcoded ? transcoder->time_base() : source.time_base;
  return Status::success();
}

Status OutputContext::open_io() {
  av_dump_format(oc.get(), 0, url.c_str(), 1);
  // A file is never interrupted: what was recorded must be written. RTSP has no I/O of this kind
  // and asks through the context.
  const AVIOInterruptCB interrupt = io.callback();
  const bool network = is_network_url(url.c_str());
  if (network) oc->interrupt_callback = interrupt;
  io.begin_operation();
  if (!owns_io()) return Status::success();
  const int result =
      avio_open2(&oc->pb, url.c_str(), AVIO_FLAG_WRITE, network ? &interrupt : nullptr, nullptr);
  if (result >= 0) return Status::success();
  ZEVA_LOG(kLogError, "(%d)%s", result, av_error_text(result));
  return Status::failure(kIoFailed, "Failed to open I/O for '" + url + "'");
}

void OutputContext::attach_snapshot(const std::string& path) {
  if (!snapshot) return;
  const bool attached = snapshot->attach(oc.get());
  ZEVA_LOG(kLogError, "启动快照 (%s): %s", attached ? "success" : "failed", path.c_str());
}

// The metadata serves as the options too: pairs that name a muxer option act as one, the others
// stay metadata.
Status OutputContext::write_header() {
  io.begin_operation();
  const int result = avformat_write_header(oc.get(), &oc->metadata);
  if (result >= 0) return Status::success();
  return Status::failure(kHeaderFailed, "Failed to write header for '" + url + "' (" +
                                            std::to_string(result) + ")" + av_error_text(result));
}

// ---- the worker thread

bool OutputContext::enqueue(const AVPacket* packet, AVRational time_base, int stream_index) {
  PacketPtr clone;
  if (packet != nullptr) {
    if (stream_index < 0) return true;
    clone.reset(av_packet_clone(packet));
    if (!clone) return false;
    av_packet_rescale_ts(clone.get(), time_base, oc->streams[stream_index]->time_base);
    clone->stream_index = stream_index;
  }
  if (packets.push(clone.get(), qel::kUnbounded, false, 0) == qel::QueueResult::Ok) {
    (void)clone.release();  // owned by the queue now
    return true;
  }
  ZEVA_LOG(kLogError, "*** '%s' enque failed, aborted (stream_idx=%d).", url.c_str(), stream_index);
  return false;
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

int route(const AVPacket* packet, AVRational time_base, const char* name,
          const OutputList& outputs) {
  if (name[0] != 'h' && name[0] != 'a') {
    // Also the end of the inputs: trailers are written by the outputs' own threads.
    ZEVA_LOG(kLogInfo, "recieve frame: '%s', ignore", name);
    return 0;
  }
  const bool video = name[0] == 'h';
  for (const auto& output : outputs) {
    const bool taken =
        video ? output->enqueue_video(packet, time_base) : output->enqueue_audio(packet, time_base);
    if (!taken) return video ? kVideoRefused : kAudioRefused;
  }
  return 0;
}

// ---- the writer thread

void OutputContext::write_loop() {
  AVPacket* packet = nullptr;
  bool written = false;
  while (packets.pop(packet, true, 0, true) == qel::QueueResult::Ok) {
    if (packet == nullptr) {
      ZEVA_LOG(kLogDebug, "-- pkt == nullptr, EOF");
      break;
    }
    if (!write(PacketPtr(packet))) break;
    written = true;
  }
  // Streams that could not be known, or nothing but their beginning: no movie.
  if (!written) fail("get a packet for", AVERROR_INVALIDDATA);
  // After an error too: what was written before is to be a movie.
  io.begin_operation();
  const int result = io.result_of_operation(av_write_trailer(oc.get()));
  if (result < 0) {
    ZEVA_LOG(kLogError, "trailer of '%s': (%d) %s", url.c_str(), result, av_error_text(result));
    fail("finish", result);
  }
  ZEVA_LOG(kLogInfo, "write thread finished: %s", url.c_str());
}

bool OutputContext::write(PacketPtr packet) {
  io.begin_operation();
  const int result = io.result_of_operation(av_interleaved_write_frame(oc.get(), packet.get()));
  if (result >= 0) return true;
  ZEVA_LOG(kLogError, "Output thread Error(%d, %s): abort! %s", result, av_error_text(result),
           url.c_str());
  fail("write to", result);
  packets.abort();
  return false;
}

void OutputContext::fail(const char* what, int result) {
  if (!first_failure.ok) return;
  first_failure = Status::failure(result, std::string("Failed to ") + what + " '" + url + "' (" +
                                              std::to_string(result) + ")" + av_error_text(result));
}

// ---- the end

void OutputContext::finish() {
  if (transcoder) (void)enqueue_audio(nullptr, transcoder->time_base());
  (void)packets.push(nullptr, qel::kUnbounded, false, 0);
}

void OutputContext::close() {
  if (thread.joinable()) {
    (void)packets.push(nullptr, qel::kUnbounded, false, 0);
    thread.join();
  }
  transcoder.reset();
  if (oc) {
    ZEVA_LOG(kLogInfo, "close ofmt");
    io.begin_operation();
    const int result = owns_io() ? avio_closep(&oc->pb) : 0;
    if (result < 0) {
      ZEVA_LOG(kLogError, "close of '%s': (%d) %s", url.c_str(), result, av_error_text(result));
      fail("finish", result);
    }
    oc.reset();
  }
  snapshot.reset();
}

}  // namespace zeva
