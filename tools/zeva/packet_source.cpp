#include "packet_source.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "audio_track.h"
#include "output_url.h"
#include "pcm_track.h"
#include "picture_rate.h"
#include "video_track.h"

namespace zeva_tool {
namespace {

constexpr AVRational kFallbackFps{25, 1};
constexpr int64_t kNoPacket = INT64_MAX;

AVRational frame_rate_of(const AVStream& stream) {
  AVRational rate = stream.r_frame_rate.num > 0 ? stream.r_frame_rate : stream.avg_frame_rate;
  return rate.num > 0 && rate.den > 0 && av_q2d(rate) <= kMaxStreamRate ? rate : kFallbackFps;
}

int64_t front_us(PacketTrack* track) {
  return track ? track->time_us().value_or(kNoPacket) : kNoPacket;
}

int64_t begin_us(PacketTrack* track) {
  return track ? track->shown_us().value_or(kNoPacket) : kNoPacket;
}

}  // namespace

PacketSource::PacketSource(const MuxOptions& the_options, Terminal& the_terminal)
    : options(the_options), terminal(the_terminal) {}

Status PacketSource::open() {
  Status status = open_streams();
  if (!status.ok()) return status;
  zero_us = std::min(begin_us(video.get()), begin_us(audio.get()));
  if (zero_us == kNoPacket) zero_us = 0;
  if (video) not_begun.push_back(video.get());
  if (audio) not_begun.push_back(audio.get());
  return {};
}

Status PacketSource::open_streams() {
  Status status;
  if (!options.input.empty()) return open_movie();
  if (!options.video.empty()) status = open_video_file();
  if (status.ok() && !options.audio.empty()) status = open_audio_file();
  if (status.ok() && options.pcm) status = open_pcm();
  return status;
}

Status PacketSource::open_movie() {
  std::string path = local_path(options.input);
  Status status = first_file.open("--input", path, nullptr);
  if (!status.ok()) return status;
  std::string name = "--input " + path;
  const AVStream* pictures = options.no_video ? nullptr : first_file.select(AVMEDIA_TYPE_VIDEO);
  const AVStream* sound = options.no_audio ? nullptr : first_file.select(AVMEDIA_TYPE_AUDIO);
  if (!pictures && !sound) return Status(name + " has nothing to record");
  if (pictures) {
    auto track = std::make_unique<VideoTrack>(name, first_file, *pictures, std::nullopt);
    status = track->check();
    turned_deg = track->rotation_deg();
    video = std::move(track);
  }
  if (status.ok() && sound) {
    auto track = std::make_unique<AudioTrack>(name, first_file, *sound, false);
    status = track->check();
    audio = std::move(track);
  }
  return status;
}

Status PacketSource::open_video_file() {
  std::string path = local_path(options.video);
  std::string name = "--video " + path;
  Status status = first_file.open("--video", path, "h264");
  if (!status.ok()) return status;
  const AVStream* stream = first_file.select(AVMEDIA_TYPE_VIDEO);
  if (!stream) return Status(name + " holds no H.264 pictures");
  auto fps = options.fps.empty() ? frame_rate_of(*stream)
                                 : parse_rate(options.fps, kMaxStreamRate).value();
  auto track = std::make_unique<VideoTrack>(name, first_file, *stream, fps);
  status = track->check();
  video = std::move(track);
  return status;
}

Status PacketSource::open_audio_file() {
  std::string path = local_path(options.audio);
  std::string name = "--audio " + path;
  Status status = second_file.open("--audio", path, "aac");
  if (!status.ok()) return status;
  const AVStream* stream = second_file.select(AVMEDIA_TYPE_AUDIO);
  if (!stream) return Status(name + " holds no AAC sound");
  auto track = std::make_unique<AudioTrack>(name, second_file, *stream, true);
  status = track->check();
  audio = std::move(track);
  return status;
}

Status PacketSource::open_pcm() {
  auto track = std::make_unique<PcmTrack>(options.pcm_format, terminal);
  Status status = track->check();
  audio = std::move(track);
  return status;
}

void PacketSource::describe(MovieInfo2& info) const {
  if (video) video->describe(info);
  if (audio) audio->describe(info);
}

// The track whose packet comes next: the one with the earlier packet, except that each begins at
// once. The library leaves out a stream that it gets nothing of for 3 s, however late it begins.
PacketTrack* PacketSource::next_track() {
  int64_t video_us = front_us(video.get());
  int64_t audio_us = front_us(audio.get());
  if (std::min(video_us, audio_us) == kNoPacket) return nullptr;
  PacketTrack* earlier = video_us <= audio_us ? video.get() : audio.get();
  PacketTrack* later = earlier == video.get() ? audio.get() : video.get();
  auto is_new = [&](PacketTrack* track) {
    return std::find(not_begun.begin(), not_begun.end(), track) != not_begun.end();
  };
  bool begin_later = !is_new(earlier) && is_new(later) && front_us(later) != kNoPacket;
  return begin_later ? later : earlier;
}

Piece PacketSource::next() {
  if (current) current->pop();
  current = next_track();
  if (!current) return {};
  // The first pictures may be decoded before the recording's beginning.
  current_us = front_us(current) - zero_us;
  Piece piece{current == video.get() ? Piece::Kind::kPicture : Piece::Kind::kSound,
              std::max<int64_t>(0, current_us)};
  auto begun = std::find(not_begun.begin(), not_begun.end(), current);
  piece.at_once = begun != not_begun.end();
  if (piece.at_once) not_begun.erase(begun);
  return piece;
}

bool PacketSource::write(void* recording, int64_t stamp_us) {
  int64_t begin_us = stamp_us - std::max<int64_t>(0, current_us);
  return current->write(recording, begin_us - zero_us);
}

std::vector<std::string> PacketSource::warnings() const {
  std::vector<std::string> result;
  for (const PacketTrack* track : {video.get(), audio.get()}) {
    std::string text = track ? track->warning() : "";
    if (!text.empty() && (result.empty() || result.back() != text)) result.push_back(text);
  }
  return result;
}

}  // namespace zeva_tool
