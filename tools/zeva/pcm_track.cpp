#include "pcm_track.h"

#include <algorithm>

#include "adts.h"
#include "av.h"

namespace zeva_tool {

PcmTrack::PcmTrack(const PcmFormat& the_format, Terminal& the_terminal)
    : format(the_format),
      terminal(the_terminal),
      frame_bytes((format.sample_format == "s16" ? sizeof(int16_t) : sizeof(float)) *
                  static_cast<size_t>(format.channels)),
      block(frame_bytes * kAacFrameSamples) {}

Status PcmTrack::check() const {
  if (!Terminal::stdin_is_terminal()) return {};
  return Status("--pcm reads sound from standard input, which is a terminal");
}

void PcmTrack::describe(MovieInfo2& info) const {
  info.acodec = kPacketAudioPcm;
  info.sample_rate = format.sample_rate;
  info.channels = format.channels;
  info.sample_format = format.sample_format.c_str();
  info.bitrate = format.bitrate_kbps;
}

// The encoder takes whole blocks only, and keeps one block back. So the last block is filled up
// with silence, and a silent one follows it.
void PcmTrack::read() {
  size_t got = input_ended ? 0 : terminal.read_stdin(block.data(), block.size());
  if (got == block.size()) {
    block_ready = true;
    return;
  }
  input_ended = true;
  rest_bytes += got % frame_bytes;
  got -= got % frame_bytes;
  std::fill(block.begin() + static_cast<std::ptrdiff_t>(got), block.end(), uint8_t{0});
  block_ready = !tail_given && (got > 0 || samples > 0);
  tail_given = got == 0;
}

std::optional<int64_t> PcmTrack::time_us() {
  if (!block_ready) read();
  if (!block_ready) return std::nullopt;
  return av_rescale(samples, 1000000, format.sample_rate);
}

bool PcmTrack::write(void* recording, int64_t shift_us) {
  uint8_t* planes[4] = {block.data(), nullptr, nullptr, nullptr};
  return ZEVA2_write_audio_pcm(recording, planes, kAacFrameSamples, time_us().value() + shift_us);
}

void PcmTrack::pop() {
  samples += kAacFrameSamples;
  block_ready = false;
}

std::string PcmTrack::warning() const {
  if (rest_bytes == 0 || Terminal::stop_requested()) return {};
  return "standard input ended within a sample: its last " + std::to_string(rest_bytes) +
         " bytes were left out";
}

}  // namespace zeva_tool
