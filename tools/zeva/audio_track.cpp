#include "audio_track.h"

#include <utility>

namespace zeva_tool {
namespace {

constexpr int64_t kLongestDelayWithoutSilenceUs = 100000;

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

int64_t AudioTrack::frame_us() const {
  int rate = format ? format->sample_rate() : stream.codecpar->sample_rate;
  return av_rescale(kAacFrameSamples, 1000000, rate);
}

std::optional<int64_t> AudioTrack::packet_time_us() {
  const AVPacket* packet = fault_found.ok() ? reader.front(stream) : nullptr;
  // What an encoder put before the beginning is not meant to be heard.
  while (packet && (packet->flags & AV_PKT_FLAG_DISCARD)) {
    reader.pop(stream);
    packet = reader.front(stream);
  }
  if (!packet) return std::nullopt;
  bool own_time = !count_samples && packet->pts != AV_NOPTS_VALUE;
  return own_time ? av_rescale_q(packet->pts, stream.time_base, kMicroseconds) : counted_us;
}

std::optional<int64_t> AudioTrack::time_us() { return silence_us ? silence_us : packet_time_us(); }

void AudioTrack::start_at(int64_t zero_us) {
  auto first_us = packet_time_us();
  for (; first_us && *first_us + frame_us() / 2 <= zero_us; first_us = packet_time_us()) {
    pop();
    ++left_out;
  }
  int64_t delay_us = first_us ? *first_us - zero_us : 0;
  bool can_be_silent = format && !silent_aac(format->channel_config).empty();
  if (can_be_silent && delay_us > frame_us() / 2) {
    silence_us = zero_us;
  } else if (delay_us > kLongestDelayWithoutSilenceUs) {
    fault_found = Status(name + ": its sound starts " + std::to_string(delay_us / 1000) +
                         " ms after its pictures, which packets of this kind cannot express; " +
                         "`zeva record` encodes it anew");
  }
}

bool AudioTrack::write_frame(void* recording, const uint8_t* payload, size_t size,
                             int64_t stamp_us) {
  auto header = make_adts(*format, size);
  frame.assign(header.begin(), header.end());
  frame.insert(frame.end(), payload, payload + size);
  return ZEVA2_write_audio_packet(recording, frame.data(), static_cast<int>(frame.size()),
                                  stamp_us);
}

bool AudioTrack::write(void* recording, int64_t stamp_us) {
  if (silence_us) {
    std::vector<uint8_t> silence = silent_aac(format->channel_config);
    return write_frame(recording, silence.data(), silence.size(), stamp_us);
  }
  const AVPacket* packet = reader.front(stream);
  if (!format) return ZEVA2_write_audio_packet(recording, packet->data, packet->size, stamp_us);
  auto size = static_cast<size_t>(packet->size);
  if (size + kAdtsHeaderBytes > kMaxAdtsFrameBytes) {
    ++left_out;
    return true;
  }
  return write_frame(recording, packet->data, size, stamp_us);
}

void AudioTrack::pop() {
  if (silence_us) {
    *silence_us += frame_us();
    auto first_us = packet_time_us();
    if (!first_us || *silence_us + frame_us() / 2 > *first_us) silence_us.reset();
    return;
  }
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
