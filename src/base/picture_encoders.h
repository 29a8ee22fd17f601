// The pictures of a recording to packets for all of its outputs.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "ZV_AVWriter.h"
#include "options.h"
#include "rate_follower.h"
#include "recording_figures.h"
#include "status.h"
#include "stream_pictures.h"
#include "video_enc.h"
#include "zeva/movie_info.h"

namespace zeva {

// One encoder for all outputs, or one for the files and one for the live streams, which get the
// same pictures at the same times in a size and at a bit rate of their own. Lowers the rate of the
// encoder that feeds the streams while one of them lags, where the host allows it. Owns the
// encoders. Opened and closed by the recording's owner; pictures come from one thread at a time;
// the rest from any.
class PictureEncoders {
 public:
  PictureEncoders(ZV::ZV_AVWriter& writer, EncBase::Tell tell);

  // Adds the stream of pictures to the main output and opens the encoders, unless there is no
  // codec. `info` tells what was really used for the files, or for the streams where there are only
  // those.
  Status open(AVCodecID codec, MovieInfo& info, const Options& options);
  // Frees the codecs. Safe to call again.
  void close();
  // As if never opened, after an opening that failed.
  void reset();

  // The encoder for all outputs or for the files, whose frames the host's pictures become; null
  // when there is none.
  VideoEnc* first() const { return of_files.get(); }

  // Filters the picture and encodes it, once or twice. The number of packets handed on or an
  // EncodeResult; of the files, while one of them takes packets.
  int encode(AVFrame* picture, RecordingFigures::Cost& cost);
  void flush();

  // The next picture of those for the streams becomes one at which a stream can begin.
  void request_key_picture();

  void fill(ZevaStatistics& statistics) const;

 private:
  // Hands on packets to some outputs.
  class Sender : public BaseWriter {
   public:
    Sender(ZV::ZV_AVWriter& writer, ZV::Audience audience) : writer(writer), audience(audience) {}
    int write_packet(AVRational time_base, AVPacket* packet, bool interleave) override {
      return writer.write_packet(time_base, packet, interleave, audience);
    }

   private:
    ZV::ZV_AVWriter& writer;
    const ZV::Audience audience;
  };

  Status open_one(AVCodecID codec, MovieInfo& info, const Options& options);
  Status open_two(AVCodecID codec, MovieInfo& info, const Options& options);
  Status open_for_streams(AVFormatContext* oc, const PictureClock& clock, const MovieInfo& info,
                          const Options& options);
  void follow_network();
  VideoEnc* for_streams() const { return of_streams ? of_streams.get() : of_files.get(); }

  ZV::ZV_AVWriter& writer;
  const EncBase::Tell tell;
  Sender to_files;
  Sender to_streams;
  // The stream of pictures that the main output does not take. Its context is never opened.
  FormatContextPtr aside;
  std::unique_ptr<VideoEnc> of_files;    // or of all outputs
  std::unique_ptr<VideoEnc> of_streams;  // null: they share the other one
  // Pictures' thread only.
  std::optional<RateFollower> follower;
  int64_t followed_rate = 0;
};

}  // namespace zeva
