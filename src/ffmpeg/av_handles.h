// Owning handles of FFmpeg's objects: the only place that frees them.
#pragma once

#include <memory>

#include "ffmpeg.h"

namespace zeva {

struct AvDeleter {
  void operator()(AVFormatContext* p) const { avformat_free_context(p); }
  void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
  void operator()(AVFrame* p) const { av_frame_free(&p); }
  void operator()(AVPacket* p) const { av_packet_free(&p); }
  void operator()(SwsContext* p) const { sws_freeContext(p); }
  void operator()(SwrContext* p) const { swr_free(&p); }
  void operator()(AVAudioFifo* p) const { av_audio_fifo_free(p); }
};

template <typename T>
using AvHandle = std::unique_ptr<T, AvDeleter>;

using FormatContextPtr = AvHandle<AVFormatContext>;  // closes no I/O
using CodecContextPtr = AvHandle<AVCodecContext>;
using FramePtr = AvHandle<AVFrame>;
using PacketPtr = AvHandle<AVPacket>;
using SwsPtr = AvHandle<SwsContext>;
using SwrPtr = AvHandle<SwrContext>;
using AudioFifoPtr = AvHandle<AVAudioFifo>;

}  // namespace zeva
