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
  void operator()(AVBSFContext* p) const { av_bsf_free(&p); }
  void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
};

// I/O on functions of ours. FFmpeg may have put another buffer in the place of the first one.
struct CustomIoDeleter {
  void operator()(AVIOContext* pb) const {
    av_freep(&pb->buffer);
    avio_context_free(&pb);
  }
};

// A demuxer that reads through such an I/O, and the I/O, which FFmpeg leaves to us.
struct CustomInputDeleter {
  void operator()(AVFormatContext* ic) const {
    CustomIoDeleter()(ic->pb);
    avformat_close_input(&ic);
  }
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
using BsfPtr = AvHandle<AVBSFContext>;
using ParserPtr = AvHandle<AVCodecParserContext>;
using CustomIoPtr = std::unique_ptr<AVIOContext, CustomIoDeleter>;
using CustomInputPtr = std::unique_ptr<AVFormatContext, CustomInputDeleter>;

}  // namespace zeva
