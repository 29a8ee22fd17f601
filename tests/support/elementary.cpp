#include "elementary.h"

#include <cstdint>
#include <random>
#include <stdexcept>

#include "av_handles.h"

namespace {

// Opens `context` and encodes frames of noise until there are `count` packets.
std::vector<TimedPacket> encode_noise(AVCodecContext* context, int count) {
  if (avcodec_open2(context, nullptr, nullptr) < 0) throw std::runtime_error("no encoder");
  const bool sound = context->codec_type == AVMEDIA_TYPE_AUDIO;
  std::vector<TimedPacket> packets;
  std::minstd_rand random(1);
  const zeva::PacketPtr packet(av_packet_alloc());
  for (int64_t n = 0; packets.size() < static_cast<size_t>(count); ++n) {
    const zeva::FramePtr frame(av_frame_alloc());
    frame->format = sound ? context->sample_fmt : static_cast<int>(context->pix_fmt);
    frame->width = context->width;
    frame->height = context->height;
    frame->nb_samples = sound ? context->frame_size : 0;
    frame->channel_layout = context->channel_layout;
    frame->pts = sound ? n * context->frame_size : n;
    av_frame_get_buffer(frame.get(), 0);
    for (const AVBufferRef* buffer : frame->buf) {
      for (size_t i = 0; buffer != nullptr && i < static_cast<size_t>(buffer->size); ++i) {
        // As floats: small numbers.
        const bool exponent = sound && i % 4 == 3;
        buffer->data[i] = exponent ? 0x3c : static_cast<uint8_t>(random());
      }
    }
    avcodec_send_frame(context, frame.get());
    while (avcodec_receive_packet(context, packet.get()) == 0) {
      const auto* bytes = reinterpret_cast<const char*>(packet->data);
      packets.push_back({{bytes, static_cast<size_t>(packet->size)}, packet->pts, packet->dts});
      av_packet_unref(packet.get());
    }
  }
  packets.resize(static_cast<size_t>(count));
  return packets;
}

std::vector<std::string> without_times(const std::vector<TimedPacket>& timed) {
  std::vector<std::string> packets;
  for (const TimedPacket& packet : timed) packets.push_back(packet.bytes);
  return packets;
}

}  // namespace

// ISO/IEC 13818-7: LC, 48 kHz (3), two channels, length, buffer fullness 0x7ff, one block.
std::string adts_header(int packet_bytes) {
  const int length = packet_bytes + 7;
  std::string header = "\xFF\xF1\x4C\x80 \x1F\xFC";
  header[3] = static_cast<char>(2 << 6 | length >> 11);
  header[4] = static_cast<char>(length >> 3);
  header[5] = static_cast<char>((length & 7) << 5 | 0x1F);
  return header;
}

std::vector<TimedPacket> timed_h264_packets(int count, const char* x264) {
  const zeva::CodecContextPtr context(
      avcodec_alloc_context3(avcodec_find_encoder_by_name("libx264")));
  context->width = context->height = 96;
  context->pix_fmt = AV_PIX_FMT_YUV420P;
  context->time_base = {1, 5};
  context->gop_size = 12;
  context->thread_count = 1;
  av_opt_set(context->priv_data, "preset", "ultrafast", 0);
  av_opt_set(context->priv_data, "tune", "zerolatency", 0);
  av_opt_set(context->priv_data, "x264-params", x264, 0);
  return encode_noise(context.get(), count);
}

std::vector<std::string> h264_packets(int count, const char* x264) {
  return without_times(timed_h264_packets(count, x264));
}

std::vector<std::string> aac_packets(int count) {
  const zeva::CodecContextPtr context(avcodec_alloc_context3(avcodec_find_encoder_by_name("aac")));
  context->sample_fmt = AV_SAMPLE_FMT_FLTP;
  context->sample_rate = 48000;
  context->channels = 2;
  context->channel_layout = AV_CH_LAYOUT_STEREO;
  context->bit_rate = 128000;
  std::vector<std::string> packets = without_times(encode_noise(context.get(), count));
  for (std::string& packet : packets)
    packet.insert(0, adts_header(static_cast<int>(packet.size())));
  return packets;
}
