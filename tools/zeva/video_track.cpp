#include "video_track.h"

#include <utility>

namespace zeva_tool {

VideoTrack::VideoTrack(std::string the_name, PacketReader& the_reader, const AVStream& the_stream,
                       std::optional<AVRational> rate)
    : name(std::move(the_name)), reader(the_reader), stream(the_stream), fps(rate) {}

// The library stamps packets with one time each and sorts them by it, so the order of the packets
// must be the order of the pictures; and it takes every field for a picture of its own.
Status VideoTrack::check() const {
  const AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.codec_id != AV_CODEC_ID_H264) {
    return Status(name + ": its pictures are " + avcodec_get_name(parameters.codec_id) +
                  ", not H.264; `zeva record` encodes them anew, --no-video leaves them out");
  }
  if (parameters.width <= 0) return Status(name + " holds no H.264 pictures");
  if (parameters.video_delay > 0) {
    return Status(name + ": its pictures are stored in another order than they are shown " +
                  "(B-frames), which packets with one time stamp each cannot express; " +
                  "`zeva record` encodes them anew");
  }
  bool fields =
      parameters.field_order != AV_FIELD_PROGRESSIVE && parameters.field_order != AV_FIELD_UNKNOWN;
  if (fields) {
    return Status(name + ": its pictures are interlaced, and a field would be taken for a " +
                  "picture; `zeva record` encodes them anew");
  }
  return {};
}

// Extradata of length-prefixed H.264 starts with its version, that of Annex B with a start code.
bool VideoTrack::length_prefixed() const {
  return stream.codecpar->extradata_size > 0 && stream.codecpar->extradata[0] == 1;
}

void VideoTrack::describe(MovieInfo2& info) const {
  info.vcodec = 1;
  if (!length_prefixed()) return;
  info.extradata = stream.codecpar->extradata;
  info.extradata_len = stream.codecpar->extradata_size;
}

int64_t VideoTrack::own_time_us(const AVPacket& packet) const {
  int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (time != AV_NOPTS_VALUE) return av_rescale_q(time, stream.time_base, kMicroseconds);
  return last_us ? *last_us + av_rescale_q(packet.duration, stream.time_base, kMicroseconds) : 0;
}

std::optional<int64_t> VideoTrack::time_us() {
  const AVPacket* packet = fault_found.ok() ? reader.front(stream) : nullptr;
  // Nothing before the first key picture can be decoded.
  while (packet && !begun && !(packet->flags & AV_PKT_FLAG_KEY)) {
    ++left_out;
    reader.pop(stream);
    packet = reader.front(stream);
  }
  if (!packet) return std::nullopt;
  begun = true;
  if (fps) return av_rescale_q(count, av_inv_q(*fps), kMicroseconds);
  int64_t time = own_time_us(*packet);
  if (last_us && time <= *last_us) {
    fault_found = Status(name + ": after " + std::to_string(count) + " pictures the time goes " +
                         "back, as it does with B-frames; `zeva record` encodes them anew");
    return std::nullopt;
  }
  return time;
}

bool VideoTrack::write(void* recording, int64_t stamp_us) {
  const AVPacket* packet = reader.front(stream);
  return ZEVA2_write_video_packet(recording, packet->data, packet->size, stamp_us);
}

void VideoTrack::pop() {
  last_us = own_time_us(*reader.front(stream));
  ++count;
  reader.pop(stream);
}

std::string VideoTrack::warning() const {
  if (!reader.read_error().empty())
    return "reading " + name + " ended early: " + reader.read_error();
  if (left_out == 0) return {};
  return std::to_string(left_out) + " pictures of " + name +
         " before its first key picture were left out";
}

}  // namespace zeva_tool
