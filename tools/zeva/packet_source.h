// Encoded pictures and sound, from files or from standard input, in the order of their times.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mux_options.h"
#include "packet_reader.h"
#include "packet_track.h"
#include "source.h"
#include "terminal.h"

namespace zeva_tool {

class PacketSource : public Source {
 public:
  // The references must outlive the source.
  PacketSource(const MuxOptions& options, Terminal& terminal);

  Status open() override;
  Piece next() override;
  bool write(void* recording, int64_t stamp_us) override;
  std::vector<std::string> warnings() const override;

  // Known once the source is open. The settings refer to the source's memory.
  bool has_pictures() const { return video != nullptr; }
  bool has_sound() const { return audio != nullptr; }
  void describe(MovieInfo2& info) const;
  int rotation_deg() const { return turned_deg; }

 private:
  Status open_movie();
  Status open_video_file();
  Status open_audio_file();
  Status open_pcm();
  Status open_streams();
  PacketTrack* next_track();

  const MuxOptions& options;
  Terminal& terminal;
  PacketReader first_file;
  PacketReader second_file;
  std::unique_ptr<PacketTrack> video;
  std::unique_ptr<PacketTrack> audio;
  std::vector<PacketTrack*> not_begun;  // nothing of them was handed over yet
  int turned_deg = 0;
  int64_t zero_us = 0;  // of the tracks' time line at the recording's start
  PacketTrack* current = nullptr;
  int64_t current_us = 0;  // in the recording
};

}  // namespace zeva_tool
