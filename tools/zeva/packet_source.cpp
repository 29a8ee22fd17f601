#include "packet_source.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "audio_track.h"
#include "output_url.h"
#include "pcm_track.h"
#include "video_track.h"

namespace zeva_tool {
namespace {

constexpr AVRational kFallbackFps{25, 1};
constexpr int64_t kNoPacket = INT64_MAX;

AVRational frame_rate_of(const AVStream& stream) {
  AVRational rate = stream.r_frame_rate.num > 0 ? stream.r_frame_rate : stream.avg_frame_rate;
  return rate.num > 0 && rate.den > 0 && av_q2d(rate) <= kMaxFps ? rate : kFallbackFps;
}

int64_t front_us(PacketTrack* track) {
  return track ? track->time_us().value_or(kNoPacket) : kNoPacket;
}

}  // namespace

PacketSource::PacketSource(const MuxOptions& the_options, Terminal& the_terminal)
    : options(the_options), terminal(the_terminal) {}

Status PacketSource::open() {
  Status status = open_streams();
  if (!status.ok()) return status;
  int64_t video_us = front_us(video.get());
  zero_us = video_us != kNoPacket ? video_us : front_us(audio.get());
  if (audio && video_us != kNoPacket) audio->start_at(zero_us);
  std::vector<std::string> found = faults();
  return found.empty() ? Status() : Status(found.front());
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
  auto fps = options.fps.empty() ? frame_rate_of(*stream) : parse_fps(options.fps).value();
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

Piece PacketSource::next() {
  if (current) current->pop();
  int64_t video_us = front_us(video.get());
  int64_t audio_us = front_us(audio.get());
  bool take_video = video_us <= audio_us;
  int64_t time_us = take_video ? video_us : audio_us;
  bool go_on = faults().empty() && time_us != kNoPacket;
  current = !go_on ? nullptr : take_video ? video.get() : audio.get();
  if (!go_on) return {};
  return {take_video ? Piece::Kind::kPicture : Piece::Kind::kSound,
          std::max<int64_t>(0, time_us - zero_us)};
}

bool PacketSource::write(void* recording, int64_t stamp_us) {
  return current->write(recording, stamp_us);
}

std::vector<std::string> PacketSource::warnings() const {
  std::vector<std::string> result;
  for (const PacketTrack* track : {video.get(), audio.get()}) {
    std::string text = track ? track->warning() : "";
    if (!text.empty() && (result.empty() || result.back() != text)) result.push_back(text);
  }
  return result;
}

std::vector<std::string> PacketSource::faults() const {
  std::vector<std::string> result;
  for (const PacketTrack* track : {video.get(), audio.get()}) {
    Status fault = track ? track->fault() : Status();
    if (!fault.ok()) result.push_back(fault.sentence());
  }
  return result;
}

}  // namespace zeva_tool
