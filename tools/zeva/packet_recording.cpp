#include "packet_recording.h"

#include <algorithm>
#include <cstdio>

#include "mux_rules.h"
#include "zeva/record.h"

namespace zeva_tool {
namespace {

// Enough to keep every thread busy, little enough to stay in memory that is warm.
constexpr int32_t kUsualWaiting = 256;
// Packets that wait for a file that ends early are lost: the second place never sees them.
constexpr int32_t kWaitingBesideSpill = 32;
// The library drops from 2000 on. That far one stream may run ahead while the library needs the
// other one: to know both before it opens the outputs, or when one ends long before the other.
constexpr int32_t kMostWaiting = 1900;
// Asking takes the locks that the library works under, so it is done once for so many packets.
constexpr int kAtOnce = 16;
constexpr int64_t kStandstillUs = 200000;
constexpr int64_t kGiveUpUs = 15000000;

void copy_text(char* to, size_t size, const std::string& from) {
  snprintf(to, size, "%s", from.c_str());
}

}  // namespace

PacketRecording::PacketRecording(const MuxOptions& the_options, PacketSource& the_source)
    : options(the_options),
      policies(the_options),
      source(the_source),
      usual_waiting(the_options.spill.empty() ? kUsualWaiting : kWaitingBesideSpill) {}

Status PacketRecording::prepare() {
  Status status = check_containers(options, source.has_pictures(), source.has_sound());
  if (!status.ok()) return status;
  copy_text(settings.url, sizeof settings.url, options.output);
  copy_text(settings.moov, sizeof settings.moov, index_path(options));
  copy_text(settings.meta, sizeof settings.meta, meta_text(options));
  for (size_t i = 0; i < options.also.size(); ++i) settings.others[i] = options.also[i].c_str();
  source.describe(settings);
  return {};
}

void PacketRecording::start(StatusInbox& the_inbox) {
  inbox = &the_inbox;
  ZevaOptions more;
  ZevaOptions_init(&more);
  policies.put_into(more);
  more.common_start = 1;
  more.rotation_deg = source.rotation_deg();
  recording = ZEVA2_start_with(&settings, &more, StatusInbox::receive, inbox);
}

bool PacketRecording::begin(RecordingStreams& streams, StatusLine& /*line*/) {
  streams.pictures = source.has_pictures();
  streams.sound = source.has_sound();
  return recording != nullptr;
}

Recording::Room PacketRecording::room() {
  if (unasked-- > 0) return Room::kYes;
  unasked = 0;
  int32_t video = 0;
  int32_t audio = 0;
  int32_t outputs = 0;
  // What ended takes nothing, and says so at the next packet.
  if (!ZEVA2_backlog(recording, &video, &audio, &outputs)) {
    seen_ended = true;
    return Room::kYes;
  }
  if (outputs >= 0) seen_open = true;
  int32_t inputs = std::max(video, audio);
  if (inputs < usual_waiting && outputs < usual_waiting) {
    still_since_us = 0;
    unasked = kAtOnce;
    return Room::kYes;
  }
  int64_t now_us = ZEVA_current_sys_usec();
  int64_t all = int64_t{video} + audio + outputs;
  if (still_since_us == 0 || all != last_waiting) still_since_us = now_us;
  last_waiting = all;
  int64_t still_us = now_us - still_since_us;
  if (outputs < usual_waiting && inputs < kMostWaiting) {
    if (outputs < 0 && usual_waiting == kUsualWaiting) return Room::kYes;
    if (still_us > kStandstillUs) {
      still_since_us = now_us - kStandstillUs;  // go on like this until something moves
      last_waiting = all + 1;
      return Room::kYes;
    }
  }
  return seen_open && still_us > kGiveUpUs ? Room::kNever : Room::kNotYet;
}

// The stamp lies before the recording's beginning, so that the movie time stays what it is.
void PacketRecording::flush() {
  if (source.has_pictures()) ZEVA2_write_video_packet2(recording, nullptr, 0, 0, 0);
  if (settings.acodec == kPacketAudioPcm) ZEVA2_write_audio_pcm(recording, nullptr, 0, 0);
  if (settings.acodec == kPacketAudioAac) ZEVA2_write_audio_packet(recording, nullptr, 0, 0);
}

int64_t PacketRecording::waiting() {
  int32_t video = 0;
  int32_t audio = 0;
  int32_t outputs = 0;
  if (!ZEVA2_backlog(recording, &video, &audio, &outputs)) {
    seen_ended = true;
    return 0;
  }
  if (outputs >= 0) seen_open = true;
  return int64_t{video} + audio + std::max(0, outputs);
}

}  // namespace zeva_tool
