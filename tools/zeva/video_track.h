// The H.264 pictures of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "packet_reader.h"
#include "packet_track.h"

namespace zeva_tool {

class VideoTrack : public PacketTrack {
 public:
  // `name` is what sentences call the file. With `fps` pictures are counted, else their own times
  // hold. The references must outlive the track.
  VideoTrack(std::string name, PacketReader& reader, const AVStream& stream,
             std::optional<AVRational> fps);

  // Refuses what the library would not record as it is.
  Status check() const;

  void describe(MovieInfo2& info) const override;
  std::optional<int64_t> time_us() override;
  bool write(void* recording, int64_t stamp_us) override;
  void pop() override;
  Status fault() const override { return fault_found; }
  std::string warning() const override;

 private:
  bool length_prefixed() const;
  int64_t own_time_us(const AVPacket& packet) const;

  std::string name;
  PacketReader& reader;
  const AVStream& stream;
  std::optional<AVRational> fps;
  bool begun = false;
  int64_t count = 0;
  int64_t left_out = 0;
  std::optional<int64_t> last_us;
  Status fault_found;
};

}  // namespace zeva_tool
