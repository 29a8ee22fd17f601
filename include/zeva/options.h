// Settings that the two settings records have no field for. One plain C record for both interfaces,
// given to ZEVA_start_with and ZEVA2_start_with.
//
//   ZevaOptions options;
//   ZevaOptions_init(&options);
//   options.variable_rate = 1;                 /* a screen: every picture keeps its own time */
//   options.encoder_options = "crf=20";
//   void* rec = ZEVA_start_with(&info, &options, on_status, NULL, NULL, false);
//
// The record is versioned by its size: a host sets `struct_size` to the size it was compiled with
// (ZevaOptions_init does), and the library reads no further; what an older host's record lacks is
// as if it were 0. A 0 in any field, and a null pointer instead of the record, mean "as without
// options". Texts are UTF-8 and zero-terminated. The record and its texts are copied before the
// start returns. A value that cannot be is refused: the status callback is told AVERROR(EINVAL) and
// a text that names the field; so is a record that is longer than the library's and not 0 there.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "zeva/outputs.h"

typedef struct ZevaOptions {
  uint32_t struct_size;  // bytes; of the host's own record

  // Classic recordings: pictures a second as a fraction, such as 30000 and 1001, at most 1000.
  // `rate_den` 0: MovieInfo's fps, which is not looked at otherwise. A picture whose time, in units
  // of one picture, does not grow is dropped. MPEG-1 and -2 take the nearest rate they know;
  // MovieInfo's effective fps is the nearest whole one.
  int32_t rate_num;
  int32_t rate_den;
  // Classic recordings, 1: every picture keeps its own time, to 1/90000 s where the container can
  // say it (FLV, MKV: 1/1000 s), and a picture whose time does not grow is dropped. The rate above
  // only tells the encoder how many pictures a second to expect. A picture lasts until the next
  // one; the last one as long as the host says (`pkt_duration` of ZEVA_write_video_frame), else as
  // long as the one before it, up to a second. AVI, which numbers its pictures, has 100 places a
  // second or more for them, and ends with an error after a gap of 60000 places (10 minutes).
  // Program streams (.mpg, .vob) stamp blocks of 2 KiB: pictures that share one are shown at the
  // mean rate.
  int32_t variable_rate;

  // Classic recordings: channels of the movie's sound, 1 to 8; 0: two. One that the encoder cannot
  // take is refused.
  int32_t channels;

  // Packet recordings: by how many degrees players turn the pictures clockwise: 0, 90, 180 or 270.
  // Kept by MP4 and its relatives.
  int32_t rotation_deg;
  // Packet recordings, 1: the stamps of pictures and sound count from the same moment, which is
  // movie time 0, so that a stream may begin later than the other. 0: each stream's first packet
  // becomes its time 0.
  int32_t common_start;

  // Classic recordings: encoders by FFmpeg's names, such as "libx264"; null: by the main output's
  // ending. One that is unknown, or whose codec an output cannot hold, is refused.
  const char* video_codec;
  const char* audio_codec;
  // Classic recordings: "key=value:key=value" in FFmpeg's escaping, FFmpeg's and the encoder's own
  // names, for the video encoder, after all other settings: "crf=20" with MovieInfo's rc_mode and
  // video_bitrate 0 is constant quality without a bound of the bit rate. With "libx264" also its
  // own names that FFmpeg lacks, such as "vbv-maxrate". One that the encoder does not know is
  // refused, and so is what the recording itself settles: "time_base", "pixel_format",
  // "video_size", "annexb", and libx264's "colormatrix" and "fullrange"
  // ("colorspace" and "color_range" are FFmpeg's names of MovieInfo's fields).
  const char* encoder_options;

  // Classic recordings: matrix (AVColorSpace, ITU-T H.273) and range (AVColorRange) of the YUV
  // pictures that the host gives, where they differ from the movie's, which MovieInfo has: the
  // library converts from the one to the other. 0: as the movie's. RGB pictures have neither.
  int32_t source_matrix;
  int32_t source_range;

  // How each output acts when its disk or server cannot keep up: [0] the main output's, then the
  // further ones' in their order. The array and every entry may be null, and there may be fewer
  // entries than outputs: as without.
  const ZevaOutputPolicy* const* policies;
  int32_t policy_count;

  // Classic recordings: the lowest bit rate, in bits per second, to which the encoder of the live
  // streams may go. It goes down while what waits for one of them lasts longer than half a second,
  // and back up once nothing has waited for some seconds. Refused when a file shares the encoder,
  // whose quality would go down with it (give the streams their own with `stream_bitrate`), when it
  // is above the encoder's own rate, and with an encoder that cannot change its rate: "libx264"
  // and "h264_nvenc" can, with any rc_mode but 3. 0: the rate stays.
  int32_t stream_bitrate_floor;
  // Classic recordings: the live streams get pictures of this average bit rate, which no second
  // exceeds by much, and of this size: 0 and 0 for the movie's, one 0 for the movie's shape. Beside
  // files they come from an H.264 encoder of their own, which takes the same filtered pictures at
  // the same times and has MovieInfo's other settings; it is `video_codec` where that makes H.264,
  // and `encoder_options` are for the files. Without files, MovieInfo's effective settings tell
  // size and rate. 0: the streams share the files' encoder, and both sizes must be 0.
  int32_t stream_bitrate;
  int32_t stream_width;
  int32_t stream_height;
} ZevaOptions;

// Makes a record of defaults.
static inline void ZevaOptions_init(ZevaOptions* options) {
  memset(options, 0, sizeof *options);
  options->struct_size = (uint32_t)sizeof *options;
}
