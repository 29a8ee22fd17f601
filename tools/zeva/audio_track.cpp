#include "audio_track.h"

#include <utility>

namespace zeva_tool {
namespace {

constexpr int kSkippedSamplesBytes = 10;  // AV_PKT_DATA_SKIP_SAMPLES

// True for a packet that an encoder put before the beginning, and that is not meant to be heard.
bool is_lead_in(const AVPacket& packet) {
  if (packet.flags & AV_PKT_FLAG_DISCARD) return true;
  int size = 0;
  const uint8_t* skipped = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
  return skipped && size >= kSkippedSamplesBytes && AV_RL32(skipped) >= kAacFrameSamples;
}

}  // namespace

AudioTrack::AudioTrack(std::string the_name, PacketReader& the_reader, const AVStream& the_stream,
                       bool count)
    : name(std::move(the_name)), reader(the_reader), stream(the_stream), count_samples(count) {}

Status AudioTrack::check() {
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.codec_id != AV_CODEC_ID_AAC) {
    return Status(name + ": its sound is " + avcodec_get_name(parameters.codec_id) +
                  ", not AAC; `zeva record` encodes it anew, --no-audio leaves it out");
  }
  if (parameters.sample_rate <= 0) return Status(name + " holds no AAC sound");
  if (parameters.extradata_size == 0) return {};
  format = parse_audio_config(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
  if (!format)
    return Status(name + ": its kind of AAC has no ADTS header; --no-audio leaves it out");
  return {};
}

std::optional<int64_t> AudioTrack::time_us() {
  const AVPacket* packet = reader.front(stream);
  while (packet && !count_samples && is_lead_in(*packet)) {
    reader.pop(stream);
    packet = reader.front(stream);
  }
  if (!packet) return std::nullopt;
  bool own_time = !count_samples && packet->pts != AV_NOPTS_VALUE;
  return own_time ? av_rescale_q(packet->pts, stream.time_base, kMicroseconds) : counted_us;
}

bool AudioTrack::write_frame(void* recording, const uint8_t* payload, size_t size,
                             int64_t stamp_us) {
  auto header = make_adts(*format, size);
  frame.assign(header.begin(), header.end());
  frame.insert(frame.end(), payload, payload + size);
  return ZEVA2_write_audio_packet(recording, frame.data(), static_cast<int>(frame.size()),
                                  stamp_us);
}

bool AudioTrack::write(void* recording, int64_t shift_us) {
  const AVPacket* packet = reader.front(stream);
  const int64_t stamp_us = time_us().value() + shift_us;
  if (!format) return ZEVA2_write_audio_packet(recording, packet->data, packet->size, stamp_us);
  auto size = static_cast<size_t>(packet->size);
  if (size + kAdtsHeaderBytes > kMaxAdtsFrameBytes) {
    ++left_out;
    return true;
  }
  return write_frame(recording, packet->data, size, stamp_us);
}

void AudioTrack::pop() {
  const AVPacket* packet = reader.front(stream);
  auto header = parse_adts(packet->data, static_cast<size_t>(packet->size));
  bool has_header = !format && header;
  samples += has_header ? header->samples : kAacFrameSamples;
  int rate = has_header ? header->format.sample_rate()
             : format   ? format->sample_rate()
                        : stream.codecpar->sample_rate;
  counted_us = av_rescale(samples, 1000000, rate);
  reader.pop(stream);
}

std::string AudioTrack::warning() const {
  if (!reader.read_error().empty())
    return "reading " + name + " ended early: " + reader.read_error();
  return {};
}

}  // namespace zeva_tool
