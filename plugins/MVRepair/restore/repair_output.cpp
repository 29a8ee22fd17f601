#include "repair_output.h"

#include <cstring>
#include <limits>

#include "av_error.h"
#include "display_rotation.h"
#include "extradata.h"
#include "logger.h"
#include "output_url.h"

extern "C" {
#include <libavutil/timestamp.h>
}

namespace zeva {
namespace {

constexpr int kAudioBitRate = 64000;
constexpr int kVideoBitRate = 800000;
constexpr int kMaxChannels = 255;
// No recording gets there in any time base; FFmpeg's muxers add to time stamps unchecked.
constexpr int64_t kMaxTimestamp = int64_t{1} << 56;
// Protocols that hand the bytes on to another address, perhaps that of an input.
constexpr char kRefusedProtocols[] = "crypto,md5,tee";

int give_up_when_stopped(void* flag) {
  return static_cast<const std::atomic<bool>*>(flag)->load() ? 1 : 0;
}

bool is_valid(AVRational time_base) { return time_base.num > 0 && time_base.den > 0; }

bool is_possible(int64_t timestamp) {
  return timestamp == AV_NOPTS_VALUE || (timestamp > -kMaxTimestamp && timestamp < kMaxTimestamp);
}

int set_codec(AVCodecParameters& par, const std::string& name) {
  const AVCodecDescriptor* found = avcodec_descriptor_get_by_name(name.c_str());
  if (found == nullptr || found->type != par.codec_type) {
    ZEVA_LOG(kLogError, "---> 找不到编码器：%s", name.c_str());
    return AVERROR_ENCODER_NOT_FOUND;
  }
  par.codec_id = found->id;
  return 0;
}

int set_extradata(AVCodecParameters& par, const std::string& base64) {
  Bytes bytes;
  if (!base64_decode(base64, bytes)) return AVERROR_INVALIDDATA;
  if (bytes.empty()) return 0;
  par.extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (par.extradata == nullptr) return AVERROR(ENOMEM);
  memcpy(par.extradata, bytes.data(), bytes.size());
  par.extradata_size = static_cast<int>(bytes.size());
  return 0;
}

int unusable(const char* what) {
  ZEVA_LOG(kLogError, "the index describes no usable %s stream", what);
  return AVERROR_INVALIDDATA;
}

}  // namespace

int RepairOutput::create() {
  if (output.create(nullptr) < 0) {
    err_print(stderr, "Could not create output context\n");
    return AVERROR_UNKNOWN;
  }
  // A file is never interrupted: what was recovered must be written.
  if (file_path(output.url()).empty()) {
    output.context()->interrupt_callback = {give_up_when_stopped,
                                            const_cast<std::atomic<bool>*>(&stopped)};
  }
  return 0;
}

AVStream* RepairOutput::new_stream(AVMediaType type, AVRational time_base) {
  AVStream* stream = output.add_stream();
  if (stream == nullptr) {
    err_print(stderr, "Failed allocating output stream\n");
    return nullptr;
  }
  stream->codecpar->codec_type = type;
  stream->time_base = time_base;  // a wish; where the muxer grants it no time stamp is rounded
  return stream;
}

int RepairOutput::add_streams(const IndexStreams& streams) {
  audio_time_base = streams.audio.time_base;
  video_time_base = streams.video.time_base;
  // Records carry the recording's stream indexes, which follow this order.
  for (const AVMediaType type : streams.list) {
    const int result = type == AVMEDIA_TYPE_AUDIO ? add_audio_stream(streams.audio)
                                                  : add_video_stream(streams.video);
    if (result < 0) return result;
  }
  return 0;
}

int RepairOutput::add_audio_stream(const AudioDescription& audio) {
  const bool usable = is_valid(audio.time_base) && audio.sample_rate > 0 && audio.channels > 0 &&
                      audio.channels <= kMaxChannels && audio.frame_size >= 0;
  if (!usable) return unusable("audio");
  AVStream* stream = new_stream(AVMEDIA_TYPE_AUDIO, audio.time_base);
  if (stream == nullptr) return AVERROR_UNKNOWN;
  AVCodecParameters& par = *stream->codecpar;
  par.channels = audio.channels;
  par.channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(audio.channels));
  par.sample_rate = audio.sample_rate;
  par.frame_size = audio.frame_size;
  par.bit_rate = kAudioBitRate;
  const AVSampleFormat format = av_get_sample_fmt(audio.format.c_str());
  par.format = format != AV_SAMPLE_FMT_NONE ? format : AV_SAMPLE_FMT_FLTP;
  const int result = set_codec(par, audio.codec);
  return result < 0 ? result : set_extradata(par, audio.ev);
}

int RepairOutput::add_video_stream(const VideoDescription& video) {
  const auto width = static_cast<unsigned>(video.width);
  const auto height = static_cast<unsigned>(video.height);
  if (!is_valid(video.time_base) || av_image_check_size(width, height, 0, nullptr) < 0) {
    return unusable("video");
  }
  AVStream* stream = new_stream(AVMEDIA_TYPE_VIDEO, video.time_base);
  if (stream == nullptr) return AVERROR_UNKNOWN;
  AVCodecParameters& par = *stream->codecpar;
  par.width = video.width;
  par.height = video.height;
  const AVPixelFormat format = av_get_pix_fmt(video.format.c_str());
  par.format = format != AV_PIX_FMT_NONE ? format : AV_PIX_FMT_YUV420P;
  par.bit_rate = kVideoBitRate;
  int result = set_codec(par, video.codec);
  if (result >= 0) result = set_extradata(par, video.ev);
  return result < 0 ? result : set_display_rotation(stream, video.rotation_deg);
}

int RepairOutput::open() {
  const char* url = output.url().c_str();
  const char* protocol = avio_find_protocol_name(url);
  const bool refused = protocol != nullptr && av_match_list(protocol, kRefusedProtocols, ',') != 0;
  const int result = refused ? AVERROR(EINVAL) : output.open_io();
  if (result < 0) err_print(stderr, "Could not open output file '%s'\n", url);
  return result;
}

int RepairOutput::write_header() {
  const int result = output.write_header();
  if (result < 0) err_print(stderr, "Error occurred when opening output file\n");
  return result;
}

int RepairOutput::write(const IndexedPacket& indexed, uint8_t* data) {
  AVPacket packet;  // borrows `data`
  av_init_packet(&packet);
  packet.data = data;
  packet.size = indexed.size;
  packet.stream_index = indexed.stream_index;
  packet.flags = indexed.key ? AV_PKT_FLAG_KEY : 0;
  packet.pos = -1;
  if (static_cast<unsigned>(indexed.stream_index) >= output.context()->nb_streams) {
    packet.pts = indexed.pts;
    packet.dts = indexed.dts;
    packet.duration = indexed.duration;
    print_refused(packet, video_time_base);
    return AVERROR(EINVAL);
  }
  const AVStream& stream = *output.context()->streams[indexed.stream_index];
  const bool audio = stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
  const AVRational source = audio ? audio_time_base : video_time_base;
  const auto rounding = static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX);
  packet.pts = av_rescale_q_rnd(indexed.pts, source, stream.time_base, rounding);
  packet.dts = av_rescale_q_rnd(indexed.dts, source, stream.time_base, rounding);
  packet.duration = av_rescale_q(indexed.duration, source, stream.time_base);
  const bool possible = is_possible(packet.pts) && is_possible(packet.dts) &&
                        packet.duration >= 0 && packet.duration <= std::numeric_limits<int>::max();
  const int result = possible ? output.write_in_order(&packet) : AVERROR(EINVAL);
  if (result < 0) print_refused(packet, stream.time_base);
  return result;
}

void RepairOutput::print_refused(const AVPacket& packet, AVRational time_base) const {
  char pts[AV_TS_MAX_STRING_SIZE], dts[AV_TS_MAX_STRING_SIZE], duration[AV_TS_MAX_STRING_SIZE];
  err_print(stderr,
            "pts:%lld pts_time:%s dts:%lld dts_time:%s duration:%lld duration_time:%s "
            "stream_index:%d\n",
            static_cast<long long>(packet.pts), av_ts_make_time_string(pts, packet.pts, &time_base),
            static_cast<long long>(packet.dts), av_ts_make_time_string(dts, packet.dts, &time_base),
            static_cast<long long>(packet.duration),
            av_ts_make_time_string(duration, packet.duration, &time_base), packet.stream_index);
}

int RepairOutput::write_trailer() {
  // A movie of which nothing came back is finished all the same.
  int result = output.commit();
  if (result >= 0) result = output.write_trailer();
  // Finished with what fitted, but that is not all.
  return result >= 0 && output.is_full() ? AVERROR(ENOSPC) : result;
}

int RepairOutput::close() {
  return output.close() < 0 ? AVERROR(EIO) : 0;  // the system's close gives no FFmpeg code
}

}  // namespace zeva
