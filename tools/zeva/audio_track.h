// The AAC sound of a file, as ADTS frames.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adts.h"
#include "packet_reader.h"
#include "packet_track.h"
#include "status.h"

namespace zeva_tool {

class AudioTrack : public PacketTrack {
 public:
  // `name` is what sentences call the file. With `count_samples` samples are counted, else the
  // packets' own times hold. The references must outlive the track.
  AudioTrack(std::string name, PacketReader& reader, const AVStream& stream, bool count_samples);

  // Refuses what the library would not record as it is.
  Status check();

  void describe(MovieInfo2& info) const override { info.acodec = kPacketAudioAac; }
  std::optional<int64_t> time_us() override;
  bool write(void* recording, int64_t shift_us) override;
  void pop() override;
  std::string warning() const override;

 private:
  bool write_frame(void* recording, const uint8_t* payload, size_t size, int64_t stamp_us);

  std::string name;
  PacketReader& reader;
  const AVStream& stream;
  bool count_samples;
  std::optional<AacFormat> format;  // of packets without a header
  int64_t counted_us = 0;
  int64_t samples = 0;
  int64_t left_out = 0;
  std::vector<uint8_t> frame;
};

}  // namespace zeva_tool
