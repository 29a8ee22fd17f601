#include "movie_count.h"

#include <algorithm>

#include "av.h"
#include "lost_bytes.h"

namespace zeva_tool {
namespace {

constexpr int kPacketsPerReport = 256;

Status open_movie(const std::string& path, InputPtr& movie) {
  AVDictionary* options = nullptr;
  av_dict_set(&options, "ignore_editlist", "1", 0);  // packets outside of the edit list count too
  AVFormatContext* context = nullptr;
  int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, &options);
  av_dict_free(&options);
  if (result < 0) return Status(path + " cannot be opened as a movie: " + av_text(result));
  movie.reset(context);
  return {};
}

bool is_damaged(const AVPacket& packet, const AVCodecParameters& par) {
  // An AVCDecoderConfigurationRecord; other containers carry byte streams, which have no lengths.
  bool has_lengths =
      par.codec_id == AV_CODEC_ID_H264 && par.extradata_size > 4 && par.extradata[0] == 1;
  return has_lengths && !zeva::is_whole_avc(packet.data, packet.size, (par.extradata[4] & 3) + 1);
}

void count(const AVPacket& packet, const AVStream& stream, CountedStream& counted) {
  int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (time != AV_NOPTS_VALUE) {
    int64_t start_us = av_rescale_q(time, stream.time_base, kMicroseconds);
    int64_t end_us = av_rescale_q(time + packet.duration, stream.time_base, kMicroseconds);
    counted.start_us = counted.packets == 0 ? start_us : std::min(counted.start_us, start_us);
    counted.end_us = counted.packets == 0 ? end_us : std::max(counted.end_us, end_us);
  }
  ++counted.packets;
  counted.damaged += is_damaged(packet, *stream.codecpar);
}

}  // namespace

Status count_movie(const std::string& path, const std::function<void(double)>& on_progress,
                   std::vector<CountedStream>& streams) {
  streams.clear();
  InputPtr movie;
  Status status = open_movie(path, movie);
  if (!status.ok()) return status;
  auto size = static_cast<double>(std::max<int64_t>(1, avio_size(movie->pb)));
  PacketPtr packet(av_packet_alloc());
  int64_t total = 0;
  int result = 0;
  while ((result = av_read_frame(movie.get(), packet.get())) >= 0) {
    auto index = static_cast<size_t>(packet->stream_index);
    if (streams.size() <= index) streams.resize(index + 1);
    count(*packet, *movie->streams[index], streams[index]);
    av_packet_unref(packet.get());
    if (++total % kPacketsPerReport == 0) {
      on_progress(static_cast<double>(avio_tell(movie->pb)) / size);
    }
  }
  if (result == AVERROR_EOF) return {};
  return Status(path + " cannot be read to its end: " + av_text(result));
}

Status read_movie_table(const std::string& path, MovieTable& table) {
  InputPtr movie;
  Status status = open_movie(path, movie);
  if (!status.ok()) return status;
  for (unsigned i = 0; i < movie->nb_streams; ++i) table.packets += movie->streams[i]->nb_frames;
  table.duration_us = movie->duration == AV_NOPTS_VALUE ? 0 : movie->duration;
  return {};
}

}  // namespace zeva_tool
