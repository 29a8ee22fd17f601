// The H.264 pictures of a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "packet_reader.h"
#include "packet_track.h"
#include "status.h"

namespace zeva_tool {

class VideoTrack : public PacketTrack {
 public:
  // `name` is what sentences call the file. With `rate`, pictures are counted at it, else their own
  // times hold. The references must outlive the track.
  VideoTrack(std::string name, PacketReader& reader, const AVStream& stream,
             std::optional<AVRational> rate);

  // Refuses what the library would not record as it is.
  Status check() const;

  // By how many degrees players turn the pictures clockwise: 0, 90, 180 or 270.
  int rotation_deg() const;

  void describe(MovieInfo2& info) const override;
  std::optional<int64_t> time_us() override;
  std::optional<int64_t> shown_us() override;
  bool write(void* recording, int64_t shift_us) override;
  void pop() override;
  std::string warning() const override;

 private:
  struct Times {
    int64_t shown_us;
    int64_t decoded_us;
  };
  bool length_prefixed() const;
  void place(const AVPacket& packet);
  std::optional<Times> counted_times() const;
  std::optional<Times> own_times(const AVPacket& packet) const;
  int64_t interval_us(const AVPacket& packet) const;

  const std::string name;
  PacketReader& reader;
  const AVStream& stream;
  const std::optional<AVRational> rate;
  std::optional<Times> at_hand;     // of the reader's front packet
  std::optional<int64_t> begin_us;  // when the first key picture is shown
  std::optional<int64_t> last_decoded_us;
  int64_t count = 0;
  int64_t undecodable = 0;
  int64_t untimed = 0;
};

}  // namespace zeva_tool
