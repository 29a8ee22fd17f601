#include "aac_encoder.h"

#include <algorithm>

#include "aac.h"
#include "av_error.h"
#include "logger.h"

namespace zeva {
namespace {

constexpr int kFrameSamples = 1024;
constexpr int kMaxPlanes = 4;  // that a host can hand over

AVSampleFormat parse_sample_format(const std::string& name) {
  if (name == "s16") return AV_SAMPLE_FMT_S16;
  if (name == "flt32p") return AV_SAMPLE_FMT_FLTP;
  if (name == "flt32") return AV_SAMPLE_FMT_FLT;
  return AV_SAMPLE_FMT_NONE;
}

int plane_count(AVSampleFormat format, int channels) {
  return av_sample_fmt_is_planar(format) != 0 ? channels : 1;
}

}  // namespace

std::unique_ptr<AACEncoder> AACEncoder::create(const AudioSettings& settings, int flags) {
  std::unique_ptr<AACEncoder> made(new AACEncoder);
  const Status status = made->open(settings, flags);
  if (status.ok) return made;
  ZEVA_LOG(kLogError, "AACEncoder error (%d): %s", status.code, status.message.c_str());
  return nullptr;
}

Status AACEncoder::open(const AudioSettings& wanted, int wanted_flags) {
  settings = wanted;
  flags = wanted_flags;
  input_format = parse_sample_format(settings.sample_format);
  if (input_format == AV_SAMPLE_FMT_NONE) {
    return Status::failure(-23, "unsuported audio format, support:(s16, flt32p, flt32)");
  }
  if (plane_count(input_format, settings.channels) > kMaxPlanes ||
      !resample.init(input_format, settings.sample_rate, settings.channels, AV_SAMPLE_FMT_FLTP,
                     settings.sample_rate, settings.channels)) {
    return Status::failure(-24, "audio resample init() failed ...");
  }
  Status opened = open_encoder();
  delay = encoder != nullptr ? encoder->initial_padding : 0;
  if (opened.ok && !make_input_frame()) return Status::failure(AVERROR(ENOMEM), "no memory");
  return opened;
}

Status AACEncoder::open_encoder() {
  const AVCodec* codec = avcodec_find_encoder_by_name("aac");
  if (codec == nullptr) return Status::failure(-21, "failed to find encoder by name 'aac'");
  encoder.reset(avcodec_alloc_context3(codec));
  if (!encoder) return Status::failure(-22, "failed to alloc context for 'aac'");
  encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
  encoder->bit_rate = int64_t{settings.bitrate} * 1000;
  encoder->channels = settings.channels;
  encoder->channel_layout = static_cast<uint64_t>(av_get_default_channel_layout(settings.channels));
  encoder->sample_rate = settings.sample_rate;
  encoder->frame_size = kFrameSamples;
  encoder->time_base = {1, settings.sample_rate};
  encoder->profile = FF_PROFILE_AAC_LOW;
  if ((flags & kGlobalHeader) != 0) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  // The encoder takes a negative rate and then never finds a quantiser.
  if (settings.bitrate < 0 || avcodec_open2(encoder.get(), encoder->codec, nullptr) < 0) {
    return Status::failure(-25, "open audio codec failed ...");
  }
  return Status::success();
}

bool AACEncoder::make_input_frame() {
  input.reset(av_frame_alloc());
  packet.reset(av_packet_alloc());
  if (!input || !packet) return false;
  input->format = input_format;
  input->sample_rate = settings.sample_rate;
  input->channels = settings.channels;
  input->channel_layout = encoder->channel_layout;
  return true;
}

bool AACEncoder::encode(const uint8_t* const* planes, int32_t nb_samples, int64_t usec,
                        const Sink& sink) {
  if (nb_samples < 1 || planes == nullptr) {
    const bool encoded = ended || encode_rest(sink);
    sink(nullptr, 0, 0, 0);
    return encoded;
  }
  if (ended && !open_encoder().ok) return false;
  ended = false;
  if (!begin_us) begin_us = usec;
  if (!point_input_at(planes, nb_samples) || !resample.push(input.get())) return false;
  return encode_buffered(encoder->frame_size, sink);
}

// Whole frames as long as there are `least_samples`; below a frame's length, the rest too.
bool AACEncoder::encode_buffered(int least_samples, const Sink& sink) {
  while (resample.buffered_samples() >= least_samples) {
    AVFrame* frame = resample.read(std::min(resample.buffered_samples(), encoder->frame_size));
    if (frame == nullptr) return false;
    frame->pts = samples_sent;
    samples_sent += frame->nb_samples;
    if (!encode_frame(frame, sink)) return false;
  }
  return true;
}

bool AACEncoder::encode_rest(const Sink& sink) {
  if (samples_sent == 0 && resample.buffered_samples() == 0) return true;
  ended = true;
  return encode_buffered(1, sink) && encode_frame(nullptr, sink);
}

bool AACEncoder::point_input_at(const uint8_t* const* planes, int nb_samples) {
  const int count = plane_count(input_format, settings.channels);
  for (int i = 0; i < count; ++i) {
    if (planes[i] == nullptr) {
      ZEVA_LOG(kLogError, "pcm without plane %d", i);
      return false;
    }
    input->data[i] = const_cast<uint8_t*>(planes[i]);
  }
  input->nb_samples = nb_samples;
  return true;
}

bool AACEncoder::encode_frame(AVFrame* frame, const Sink& sink) {
  if (avcodec_send_frame(encoder.get(), frame) < 0) return false;
  while (true) {
    const int result = avcodec_receive_packet(encoder.get(), packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return true;
    if (result < 0) return false;
    deliver(*packet, sink);
    av_packet_unref(packet.get());
  }
}

int64_t AACEncoder::time_of(int64_t samples) const {
  return begin_us.value_or(0) + av_rescale(samples, 1000000, settings.sample_rate);
}

void AACEncoder::deliver(const AVPacket& encoded, const Sink& sink) {
  // The delay of an encoder that was opened again lies within sound that is there already.
  if (encoded.pts < given_until) return;
  given_until = encoded.pts + encoded.duration;
  const auto header =
      adts_header(encoder->profile, settings.sample_rate, settings.channels, encoded.size);
  adts_frame.assign(header.begin(), header.end());
  adts_frame.insert(adts_frame.end(), encoded.data, encoded.data + encoded.size);
  const int64_t begin = time_of(encoded.pts);
  sink(adts_frame.data(), static_cast<int>(adts_frame.size()), begin, time_of(given_until) - begin);
}

}  // namespace zeva
