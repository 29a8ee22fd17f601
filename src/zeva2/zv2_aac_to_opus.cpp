#include "zv2_aac_to_opus.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "av_error.h"
#include "logger.h"
#include "saturating.h"

namespace zeva {
namespace {

constexpr int kChannels = 2;
constexpr int kBitRate = 64000;
constexpr int64_t kMaxOff = 960;  // 20 ms

// Streams may leave the layout open; then it follows from the number of channels.
int channel_count(const AVCodecContext& context) {
  return context.channels > 0 ? context.channels
                              : av_get_channel_layout_nb_channels(context.channel_layout);
}

Status open_failure(int code, const char* what, int result) {
  return Status::failure(code, std::string(what) + av_error_text(result));
}

}  // namespace

Status AacToOpus::init(const AVCodecParameters* par) {
  Status status = open_decoder(par);
  if (status.ok) status = open_encoder();
  if (status.ok &&
      !resample.init(decoder->sample_fmt, decoder->sample_rate, channel_count(*decoder),
                     encoder->sample_fmt, encoder->sample_rate, encoder->channels)) {
    status = Status::failure(-5, "Failed to initialize resample");
  }
  decoded.reset(av_frame_alloc());
  encoded.reset(av_packet_alloc());
  if (status.ok && (!decoded || !encoded)) status = Status::failure(AVERROR(ENOMEM), "no memory");
  if (!status.ok) {
    decoder.reset();
    encoder.reset();
    return status;
  }
  ZEVA_LOG(kLogDebug, "[SUCCESS] Transcoder initialized (AAC -> Opus, rate: %d Hz)", kSampleRate);
  return status;
}

Status AacToOpus::open_decoder(const AVCodecParameters* par) {
  const AVCodec* decoder_found = avcodec_find_decoder(par->codec_id);
  if (decoder_found == nullptr) {
    char text[64];
    snprintf(text, sizeof text, "AAC decoder not found (id=%d).", par->codec_id);
    return Status::failure(-1, text);
  }
  if (avcodec_find_encoder(AV_CODEC_ID_OPUS) == nullptr) {
    return Status::failure(-2, "Opus encoder not found. (libopus required)");
  }
  decoder.reset(avcodec_alloc_context3(decoder_found));
  int result = decoder ? avcodec_parameters_to_context(decoder.get(), par) : AVERROR(ENOMEM);
  if (result >= 0) result = avcodec_open2(decoder.get(), decoder_found, nullptr);
  return result < 0 ? open_failure(-3, "Failed to open AAC decoder: ", result) : Status::success();
}

Status AacToOpus::open_encoder() {
  const AVCodec* opus = avcodec_find_encoder(AV_CODEC_ID_OPUS);
  encoder.reset(avcodec_alloc_context3(opus));
  int result = AVERROR(ENOMEM);
  if (encoder) {
    encoder->sample_rate = kSampleRate;
    encoder->channels = kChannels;
    encoder->channel_layout = AV_CH_LAYOUT_STEREO;
    encoder->bit_rate = kBitRate;
    encoder->sample_fmt = AV_SAMPLE_FMT_FLT;
    encoder->time_base = time_base();
    result = avcodec_open2(encoder.get(), opus, nullptr);
  }
  return result < 0 ? open_failure(-4, "Failed to open Opus encoder: ", result) : Status::success();
}

bool AacToOpus::transcode(const AVPacket* packet, AVRational packet_time_base, EmitPacket emit,
                          void* user) {
  if (ended) return packet == nullptr;
  ended = packet == nullptr;
  if (!decode(packet)) return true;
  if (packet != nullptr) follow(*packet, packet_time_base);
  buffer_decoded();
  if (!encode_buffered(emit, user)) return false;
  return packet != nullptr || flush_encoder(emit, user);
}

bool AacToOpus::decode(const AVPacket* packet) {
  const int result = avcodec_send_packet(decoder.get(), packet);
  if (result >= 0) return true;
  ZEVA_LOG(kLogError, "send 'aac-dec' packet failed: (%d) %s", result, av_error_text(result));
  return packet == nullptr;  // at the end there is still what was decoded before
}

// The decoder has no delay: what comes out next is this packet's sound, behind what is buffered.
void AacToOpus::follow(const AVPacket& packet, AVRational packet_time_base) {
  if (packet.pts == AV_NOPTS_VALUE) return;
  const int64_t time = av_rescale_q(packet.pts, packet_time_base, time_base());
  const int64_t counted = samples_sent + resample.buffered_samples();
  const int64_t off = saturating_sub(time, saturating_add(begin.value_or(0), counted));
  if (!begin || off > kMaxOff || off < -kMaxOff) begin = saturating_sub(time, counted);
}

// The last frame is shorter than the others; the encoder knows what to do with it.
bool AacToOpus::flush_encoder(EmitPacket emit, void* user) {
  (void)resample.push(nullptr);
  if (!encode_buffered(emit, user)) return false;
  const int rest = resample.buffered_samples();
  if (rest > 0) {
    AVFrame* frame = resample.read(rest);
    if (frame == nullptr || !send_frame(frame) || !emit_encoded(emit, user)) return false;
  }
  const bool sent = avcodec_send_frame(encoder.get(), nullptr) >= 0;
  return emit_encoded(emit, user) && sent;
}

void AacToOpus::buffer_decoded() {
  while (avcodec_receive_frame(decoder.get(), decoded.get()) >= 0) {
    if (!resample.push(decoded.get())) ZEVA_LOG(kLogError, "resample: push() failed ..");
    av_frame_unref(decoded.get());
  }
}

bool AacToOpus::encode_buffered(EmitPacket emit, void* user) {
  while (resample.buffered_samples() >= encoder->frame_size) {
    AVFrame* frame = resample.read(encoder->frame_size);
    if (frame == nullptr) return false;  // without memory the FIFO would never get shorter
    (void)send_frame(frame);
    if (!emit_encoded(emit, user)) return false;
  }
  return true;
}

bool AacToOpus::send_frame(AVFrame* frame) {
  frame->pts = samples_sent;
  samples_sent += frame->nb_samples;
  const int result = avcodec_send_frame(encoder.get(), frame);
  if (result < 0) {
    ZEVA_LOG(kLogError, "send 'opus-enc' packet failed: (%d) %s", result, av_error_text(result));
  }
  return result >= 0;
}

bool AacToOpus::emit_encoded(EmitPacket emit, void* user) {
  while (avcodec_receive_packet(encoder.get(), encoded.get()) >= 0) {
    encoded->stream_index = -1;
    const int64_t time = saturating_add(encoded->pts, begin.value_or(0));
    last_pts = std::max(time, saturating_add(last_pts, 1));
    encoded->pts = encoded->dts = last_pts;
    const bool taken = emit(encoded.get(), time_base(), user);
    av_packet_unref(encoded.get());
    if (!taken) {
      ZEVA_LOG(kLogError, "opus_pkt callback error, break");
      return false;
    }
  }
  return true;
}

}  // namespace zeva
