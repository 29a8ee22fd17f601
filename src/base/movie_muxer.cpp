#include "movie_muxer.h"

#include <iterator>
#include <string>

#include "av_error.h"
#include "logger.h"
#include "output_opening.h"
#include "output_url.h"
#include "settings_check.h"
#include "stream_setup.h"

namespace zeva {
namespace {

template <typename Test>
bool any_url(const MovieInfo& info, Test test) {
  if (test(info.url)) return true;
  for (const char* const* url = info.other_urls; url != std::end(info.other_urls); ++url) {
    if (*url == nullptr) return false;
    if (test(*url)) return true;
  }
  return false;
}

}  // namespace

MovieBase::MovieBase(std::unique_ptr<BaseWriter> given)
    : writer(given ? std::move(given) : std::make_unique<BaseWriter>()) {}

MovieMuxer::~MovieMuxer() {
  stop();
  ZEVA_LOG(kLogInfo, "~movie muxer ...");
  audio_enc.reset();
  ZEVA_LOG(kLogInfo, "delete audio OK");
  video_enc.reset();
  ZEVA_LOG(kLogInfo, "delete video OK");
  ZEVA_LOG(kLogInfo, "~movie muxer OK");
}

// ---- start

int MovieMuxer::start(const MovieInfo& info, StatusCallback cb, void* user, bool async) {
  not_running = true;
  if (any_url(info, is_live_url)) avformat_network_init();
  record = std::make_unique<StartRecord>();
  record->info = info;
  record->callback = cb;
  record->user = user;
  {
    const std::lock_guard<std::mutex> lock(settings_mutex);
    effective = info;
  }
  if (async) {
    record->thread = std::thread(&MovieMuxer::run_start, this);
  } else {
    run_start();
  }
  return 0;
}

void MovieMuxer::run_start() {
  if (record->exited) {
    ZEVA_LOG(kLogError, "=^= running begin: already exited,  exit thread");
    return;
  }
  try {
    open(record->info);
  } catch (const ZVException& e) {
    ZEVA_LOG(kLogError, " ---- catch error --- : %s", e.what());
    if (record->exited) {
      ZEVA_LOG(kLogError, "=#= catch exception: already exited, ignore ...");
      return;
    }
    if (e.code == kAlreadyExitedCode) {
      ZEVA_LOG(kLogError, "== catch exception: already exited, ignore ...");
    } else if (record->callback != nullptr) {
      record->callback(e.code, e.what(), record->user);
    }
  } catch (...) {
    ZEVA_LOG(kLogError, " ---- catch error --- : Unknow\n");
  }
}

void MovieMuxer::open(MovieInfo& info) {
  const std::string fault = settings_fault(info);
  if (!fault.empty()) {
    throw ZVException(AVERROR(EINVAL), av_error_text(AVERROR(EINVAL)) + (": " + fault));
  }
  oc = create_output_context(info.url);
  if (!oc) {
    if (record->callback != nullptr) {
      record->callback(kNoContextCode, "output context is NULL", record->user);
    }
    return;
  }
  open_encoders(info);
  open_url(info);
  open_writer(info);
  not_running = false;
  if (record->callback != nullptr) record->callback(kOpenedCode, "start OK", record->user);
}

void MovieMuxer::open_encoders(MovieInfo& info) {
  const CodecChoice codecs = choose_codecs(oc.get(), info);
  writer->create_other_writers(info.other_urls);
  writer->set_timeout(info.timeout_sec);
  try {
    const AVCodec* video_codec = nullptr;
    const AVCodec* audio_codec = nullptr;
    if (codecs.video != AV_CODEC_ID_NONE) {
      video_codec = add_stream(oc.get(), codecs.video, video, info);
      has_video = video_codec != nullptr;
    }
    if (codecs.audio != AV_CODEC_ID_NONE) {
      audio_codec = add_stream(oc.get(), codecs.audio, audio, info);
      has_audio = audio_codec != nullptr;
    }
    if (has_video) {
      video_enc = std::make_unique<VideoEnc>(writer.get());
      video_enc->open(oc.get(), video_codec, video, codec_options, info);
    }
    if (has_audio) {
      audio_enc = std::make_unique<AudioEnc>(writer.get());
      audio_enc->open(oc.get(), audio_codec, audio, codec_options, info);
    }
  } catch (const std::string& text) {
    info.hardware = false;
    audio_enc.reset();
    video_enc.reset();
    throw ZVException(kOpeningFailedCode, text);
  }
}

void MovieMuxer::open_url(const MovieInfo& info) {
  av_dump_format(oc.get(), 0, info.url, 1);
  // A file is never interrupted: what was recorded must be written.
  const AVIOInterruptCB interrupt = writer->io.callback();
  const bool network = is_network_url(info.url);
  if (network) oc->interrupt_callback = interrupt;
  writer->io.begin_operation();
  if ((oc->oformat->flags & AVFMT_NOFILE) != 0) return;
  const int result =
      avio_open2(&oc->pb, info.url, AVIO_FLAG_WRITE, network ? &interrupt : nullptr, nullptr);
  if (result < 0) {
    ZEVA_LOG(kLogError, "Could not open '%s': %s", info.url, av_error_text(result));
    throw ZVException(kNoUrlCode, "Could not open url");
  }
}

void MovieMuxer::open_writer(const MovieInfo& info) {
  ZEVA_LOG(kLogError, "@@-- moov: %s", info.moov_url);
  const WriterResult result = writer->open(oc.get(), info.meta_info, info.moov_url);
  if (result.failed) {
    ZEVA_LOG(kLogError, "(%d) %s", static_cast<int>(result.value), result.message.c_str());
    throw ZVException(kOpeningFailedCode, result.message);
  }
  {
    const std::lock_guard<std::mutex> lock(settings_mutex);
    effective = info;
  }
  if (!writer->start()) throw ZVException(kOpeningFailedCode, "start failed ...");
}

// ---- frames

int MovieMuxer::write_video(AVFrame* frame, const AVRational* tb) {
  if (not_running || !video_enc) return 0;
  if (frame == nullptr) return video_enc->encode(oc.get(), video, nullptr);
  const AVRational codec_tb = video.enc->time_base;
  if (tb != nullptr) frame->pts = av_rescale_q(frame->pts, *tb, codec_tb);
  if (frame->pts <= last_video_time) {
    ZEVA_LOG(kLogDebug, "@@@ V pts: %lld  (frame->pts <= g_last_v_pts %lld)",
             static_cast<long long>(frame->pts), static_cast<long long>(last_video_time));
    return 0;
  }
  last_video_time = frame->pts;
  last_video_pts = av_rescale_q(frame->pts, codec_tb, kMicroseconds);
  return video_enc->encode(oc.get(), video, frame);
}

int MovieMuxer::write_audio(AVFrame* frame, const AVRational* tb) {
  if (not_running || !audio_enc) return 0;
  if (frame == nullptr) return audio_enc->encode(oc.get(), audio, nullptr);
  const AVRational codec_tb = audio.enc->time_base;
  if (tb != nullptr) frame->pts = av_rescale_q(frame->pts, *tb, codec_tb);
  last_audio_pts = av_rescale_q(frame->pts, codec_tb, kMicroseconds);
  return audio_enc->encode(oc.get(), audio, frame);
}

AVFrame* MovieMuxer::generate_test_video(AVRational tb) {
  VideoEnc* enc = video_encoder();
  return enc != nullptr ? enc->generate_test_frame(video, tb) : nullptr;
}

AVFrame* MovieMuxer::generate_test_audio(AVRational tb) {
  AudioEnc* enc = audio_encoder();
  return enc != nullptr ? enc->generate_test_frame(audio, tb) : nullptr;
}

MovieInfo MovieMuxer::settings() const {
  const std::lock_guard<std::mutex> lock(settings_mutex);
  return effective;
}

int64_t MovieMuxer::last_usec_pts() const {
  const int64_t of_audio = last_audio_pts;
  return of_audio >= 0 ? of_audio : last_video_pts.load();
}

// ---- stop

bool MovieMuxer::stop() {
  ZEVA_LOG(kLogInfo, "begin ...");
  if (!record) return true;
  // An opening under way gives up: its network calls are interrupted, its next step fails.
  record->exited = true;
  if (not_running) writer->request_exit();
  if (record->thread.joinable()) record->thread.join();

  FormatContextPtr context = std::move(oc);
  if (!context) return true;
  if (not_running) {
    ZEVA_LOG(kLogInfo, "end begin... ======  maybe start rtmp thread blocking ..");
  }
  not_running = true;
  if (audio_enc) audio_enc->encode(context.get(), audio, nullptr);
  if (video_enc) video_enc->encode(context.get(), video, nullptr);

  ZEVA_LOG(kLogInfo, "before write stop ...");
  writer->stop();
  ZEVA_LOG(kLogInfo, "write stop ok");
  if (has_video) close_stream(video, "--- close video OK.");
  if (has_audio) close_stream(audio, "--- close audio OK.");
  close_output(std::move(context), record->info);
  return true;
}

void MovieMuxer::close_output(FormatContextPtr context, const MovieInfo& info) {
  if ((context->oformat->flags & AVFMT_NOFILE) == 0) {
    avio_closep(&context->pb);
    ZEVA_LOG(kLogInfo, "--- close io OK.");
  }
  if (any_url(info, is_live_url)) {
    ZEVA_LOG(kLogInfo, "--- has rtmp .");
    avformat_network_deinit();
  }
  context.reset();
  ZEVA_LOG(kLogInfo, "--- free ctx OK.");
}

void MovieMuxer::close_stream(OutputStream& ost, const char* closed_message) {
  avcodec_close(ost.enc.get());
  ost.frame.reset();
  ost.tmp_frame.reset();
  ost.pkt.reset();
  ost.enc.reset();
  ZEVA_LOG(kLogInfo, "%s", closed_message);
}

}  // namespace zeva
