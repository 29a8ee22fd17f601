// The AAC sound of a file, as ADTS frames.
//
// The library starts every stream at 0, so sound that starts later than the recording gets silent
// frames before it, and sound from before the recording's start is left out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adts.h"
#include "packet_reader.h"
#include "packet_track.h"

namespace zeva_tool {

class AudioTrack : public PacketTrack {
 public:
  // `name` is what sentences call the file. With `count_samples` samples are counted, else the
  // packets' own times hold. The references must outlive the track.
  AudioTrack(std::string name, PacketReader& reader, const AVStream& stream, bool count_samples);

  // Refuses what the library would not record as it is.
  Status check();

  void describe(MovieInfo2& info) const override { info.acodec = 1; }
  std::optional<int64_t> time_us() override;
  void start_at(int64_t zero_us) override;
  bool write(void* recording, int64_t stamp_us) override;
  void pop() override;
  Status fault() const override { return fault_found; }
  std::string warning() const override;

 private:
  std::optional<int64_t> packet_time_us();
  int64_t frame_us() const;
  bool write_frame(void* recording, const uint8_t* payload, size_t size, int64_t stamp_us);

  std::string name;
  PacketReader& reader;
  const AVStream& stream;
  bool count_samples;
  std::optional<AacFormat> format;  // of packets without a header
  int64_t counted_us = 0;
  int64_t samples = 0;
  std::optional<int64_t> silence_us;  // the time of the silent frame at hand
  int64_t left_out = 0;
  std::vector<uint8_t> frame;
  Status fault_found;
};

}  // namespace zeva_tool
