#include "stream_probe.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "av_error.h"
#include "logger.h"

namespace zeva {

namespace {

constexpr int kIoBytes = 8192;
constexpr int32_t kNoMemory = -12;

// FFmpeg reports success without them.
bool is_complete(const AVFormatContext& ic) {
  if (ic.nb_streams == 0) return false;
  const AVCodecParameters& par = *ic.streams[0]->codecpar;
  if (par.format < 0) return false;
  if (par.codec_type == AVMEDIA_TYPE_AUDIO) return par.sample_rate > 0 && par.channels > 0;
  return par.width > 0 && par.height > 0;
}

}  // namespace

int StreamProbe::read(void* self, uint8_t* buffer, int size) {
  auto& probe = *static_cast<StreamProbe*>(self);
  const size_t count = std::min(probe.bytes.size() - probe.position, static_cast<size_t>(size));
  if (count == 0) return AVERROR_EOF;
  memcpy(buffer, &probe.bytes[probe.position], count);
  probe.position += count;
  return static_cast<int>(count);
}

Status StreamProbe::open(const char* format, const uint8_t* data, size_t size_bytes) {
  bytes.assign(data, data + size_bytes);
  position = 0;
  const std::string quoted = std::string("'") + format + "'";
  auto* const buffer = static_cast<uint8_t*>(av_malloc(kIoBytes));
  CustomIoPtr io(buffer == nullptr
                     ? nullptr
                     : avio_alloc_context(buffer, kIoBytes, 0, this, read, nullptr, nullptr));
  AVFormatContext* made = io != nullptr ? avformat_alloc_context() : nullptr;
  if (made == nullptr) return Status::failure(kNoMemory, "failed to allocate io for " + quoted);
  auto* input_format = av_find_input_format(format);
  if (input_format == nullptr) {
    avformat_free_context(made);
    // The muxer's code, not the demuxer's: hosts know it as it is.
    return Status::failure(AVERROR_MUXER_NOT_FOUND, "could not find input format " + quoted);
  }
  made->pb = io.get();
  made->flags = AVFMT_FLAG_CUSTOM_IO;
  // The host stamps the packets; there is but one to look at.
  made->fps_probe_size = 0;
  made->max_ts_probe = 0;
  int result = avformat_open_input(&made, nullptr, input_format, nullptr);
  if (result < 0) {
    return Status::failure(result, "Could not open input " + quoted + ": " + av_error_text(result));
  }
  CustomInputPtr input(made);
  (void)io.release();  // owned by the input now
  result = avformat_find_stream_info(made, nullptr);
  if (result >= 0 && !is_complete(*made)) result = AVERROR_STREAM_NOT_FOUND;
  if (result < 0) return Status::failure(result, "could not find stream information for " + quoted);
  ZEVA_LOG(kLogError, "===> find input stream '%s' success.", format);
  av_dump_format(made, 0, format, 0);
  ic = std::move(input);
  return Status::success();
}

AVStream* StreamProbe::stream() const { return ic != nullptr ? ic->streams[0] : nullptr; }

}  // namespace zeva
