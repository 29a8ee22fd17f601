#include "writer_clone.h"

#include "av_error.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

enum UrlKind { kNoUrl = -1, kMp4 = 0, kHls = 1, kRtmp = 2, kRtsp = 3, kOtherUrl = 100 };

UrlKind classify(const char* url) {
  if (url == nullptr) return kNoUrl;
  if (ends_with_nocase(url, ".mp4")) return kMp4;
  if (ends_with_nocase(url, ".m3u8")) return kHls;
  if (av_stristart(url, "rtmp://", nullptr) != 0) return kRtmp;
  if (av_stristart(url, "rtsp://", nullptr) != 0) return kRtsp;
  return kOtherUrl;
}

// Builds one clone step by step; remembers the FFmpeg code of the step that failed.
class Cloner {
 public:
  Cloner(const AVFormatContext& main_context, const char* url, const AVIOInterruptCB& interrupt)
      : main(main_context), url(url), interrupt(interrupt) {}

  WriterResult run() {
    WriterResult result = create_context();
    if (!result.failed) result = copy_streams();
    if (!result.failed) result = open_io();
    if (result.failed && ffmpeg_result < 0) {
      ZEVA_LOG(kLogError, "Error ###: res=%d, %s\n", ffmpeg_result, av_error_text(ffmpeg_result));
    }
    return result;
  }

  FormatContextPtr context;

 private:
  WriterResult create_context() {
    AVFormatContext* made = nullptr;
    if (classify(main.url) == classify(url)) {
      ffmpeg_result = avformat_alloc_output_context2(&made, main.oformat, nullptr, url);
      if (ffmpeg_result < 0 || made == nullptr) {
        return WriterResult::failure(-2, std::string("Could not create output context: ") + url);
      }
    } else {
      const bool rtmp = classify(url) == kRtmp;
      AVOutputFormat* format =
          rtmp ? av_guess_format("flv", nullptr, nullptr) : av_guess_format(nullptr, url, nullptr);
      if (format == nullptr) return WriterResult::failure(-3, "guss format is null");
      ffmpeg_result = avformat_alloc_output_context2(&made, format, nullptr, url);
      if (ffmpeg_result < 0 || made == nullptr) {
        return WriterResult::failure(
            -4, std::string("create context failed: ") + av_error_text(ffmpeg_result) + ", " + url);
      }
    }
    context.reset(made);
    return {};
  }

  WriterResult copy_streams() {
    for (unsigned i = 0; i < main.nb_streams; ++i) {
      const AVStream& source = *main.streams[i];
      const AVCodec* encoder = avcodec_find_encoder(source.codecpar->codec_id);
      AVStream* stream = avformat_new_stream(context.get(), encoder);
      if (stream == nullptr) {
        return WriterResult::failure(-5, std::string("failed create output stream: ") + url);
      }
      ffmpeg_result = avcodec_parameters_copy(stream->codecpar, source.codecpar);
      if (ffmpeg_result < 0) {
        return WriterResult::failure(-5, std::string("failed create output stream: ") + url);
      }
      stream->time_base = source.time_base;
      stream->codecpar->codec_tag = 0;
    }
    return {};
  }

  WriterResult open_io() {
    av_dump_format(context.get(), 0, url, 1);
    const AVIOInterruptCB* callback = is_network_url(url) ? &interrupt : nullptr;
    if (callback != nullptr) context->interrupt_callback = interrupt;
    if ((context->oformat->flags & AVFMT_NOFILE) != 0) return {};
    ffmpeg_result = avio_open2(&context->pb, url, AVIO_FLAG_WRITE, callback, nullptr);
    if (ffmpeg_result < 0) {
      return WriterResult::failure(
          -6, std::string("io open failed: ") + av_error_text(ffmpeg_result) + ", " + url);
    }
    return {};
  }

  const AVFormatContext& main;
  const char* url;
  const AVIOInterruptCB& interrupt;
  int ffmpeg_result = 0;
};

}  // namespace

ClonedContext clone_output_context(const AVFormatContext* main_context, const char* url,
                                   const AVIOInterruptCB& interrupt) {
  if (main_context == nullptr || url == nullptr || url[0] == '\0') {
    return {nullptr, WriterResult::failure(-1, "clone: invalid paramters")};
  }
  Cloner cloner(*main_context, url, interrupt);
  WriterResult result = cloner.run();
  if (result.failed) cloner.context.reset();  // its I/O is the last step: never open here
  return {std::move(cloner.context), std::move(result)};
}

}  // namespace zeva
