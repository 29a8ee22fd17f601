#include "movie_muxer.h"

#include <iterator>
#include <string>

#include "av_error.h"
#include "logger.h"
#include "movie_output.h"
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
    writer->stop();  // a host may keep the handle of a failed start for long
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
  open_main(info);
  open_encoders(info);
  open_url(info);
  open_writer(info);
  not_running = false;
  if (record->callback != nullptr) record->callback(kOpenedCode, "start OK", record->user);
}

void MovieMuxer::open_main(const MovieInfo& info) {
  AVOutputFormat* const format = guess_output_format(info.url);
  if (format == nullptr) throw ZVException(kNoFormatCode, "@ av_guess_format(...) is NULL");
  if (writer->main_output().create(format) < 0) {
    throw ZVException(kNoContextCode, "@ alloc context failed ...");
  }
  oc = writer->main_output().context();
  if (is_live_url(info.url)) {
    writer->main_output().set_server_timeout(int64_t{info.timeout_sec} * 1000000);
  }
}

void MovieMuxer::open_encoders(MovieInfo& info) {
  const CodecChoice codecs = choose_codecs(*oc->oformat, info);
  writer->create_other_writers(info.other_urls);
  writer->set_timeout(info.timeout_sec);
  try {
    const AVCodec* video_codec = nullptr;
    const AVCodec* audio_codec = nullptr;
    if (codecs.video != AV_CODEC_ID_NONE) {
      video_codec = add_stream(oc, codecs.video, video, info);
      has_video = video_codec != nullptr;
    }
    if (codecs.audio != AV_CODEC_ID_NONE) {
      audio_codec = add_stream(oc, codecs.audio, audio, info);
      has_audio = audio_codec != nullptr;
    }
    if (has_video) {
      video_enc = std::make_unique<VideoEnc>(writer.get());
      video_enc->open(oc, video_codec, video, codec_options, info);
    }
    if (has_audio) {
      audio_enc = std::make_unique<AudioEnc>(writer.get());
      audio_enc->open(oc, audio_codec, audio, codec_options, info);
    }
  } catch (const std::string& text) {
    info.hardware = false;
    audio_enc.reset();
    video_enc.reset();
    throw ZVException(kOpeningFailedCode, text);
  }
}

void MovieMuxer::open_url(const MovieInfo& info) {
  const int result = writer->main_output().open_io();
  if (result < 0) {
    ZEVA_LOG(kLogError, "Could not open '%s': %s", info.url, av_error_text(result));
    throw ZVException(kNoUrlCode, "Could not open url");
  }
}

void MovieMuxer::open_writer(const MovieInfo& info) {
  ZEVA_LOG(kLogError, "@@-- moov: %s", info.moov_url);
  const Status opened = writer->open(info.meta_info, info.moov_url);
  if (!opened.ok) {
    ZEVA_LOG(kLogError, "(%d) %s", opened.code, opened.message.c_str());
    throw ZVException(kOpeningFailedCode, opened.message);
  }
  {
    const std::lock_guard<std::mutex> lock(settings_mutex);
    effective = info;
  }
  const Status started = writer->start();
  if (!started.ok) throw ZVException(kOpeningFailedCode, started.message);
}

// ---- frames

int MovieMuxer::write_video(AVFrame* frame, const AVRational* tb) {
  if (not_running || !video_enc) return 0;
  if (frame == nullptr) return video_enc->encode(oc, video, nullptr);
  const AVRational codec_tb = video.enc->time_base;
  if (tb != nullptr) frame->pts = av_rescale_q(frame->pts, *tb, codec_tb);
  if (frame->pts <= last_video_time) {
    ZEVA_LOG(kLogDebug, "@@@ V pts: %lld  (frame->pts <= g_last_v_pts %lld)",
             static_cast<long long>(frame->pts), static_cast<long long>(last_video_time));
    return 0;
  }
  last_video_time = frame->pts;
  last_video_pts = av_rescale_q(frame->pts, codec_tb, kMicroseconds);
  return video_enc->encode(oc, video, frame);
}

int MovieMuxer::write_audio(AVFrame* frame, const AVRational* tb) {
  if (not_running || !audio_enc) return 0;
  if (frame == nullptr) return audio_enc->encode(oc, audio, nullptr);
  const AVRational codec_tb = audio.enc->time_base;
  if (tb != nullptr) frame->pts = av_rescale_q(frame->pts, *tb, codec_tb);
  last_audio_pts = av_rescale_q(frame->pts, codec_tb, kMicroseconds);
  return audio_enc->encode(oc, audio, frame);
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

  if (oc == nullptr) return true;
  if (not_running) {
    ZEVA_LOG(kLogInfo, "end begin... ======  maybe start rtmp thread blocking ..");
  }
  not_running = true;
  if (audio_enc) audio_enc->encode(oc, audio, nullptr);
  if (video_enc) video_enc->encode(oc, video, nullptr);

  ZEVA_LOG(kLogInfo, "before write stop ...");
  writer->stop();
  ZEVA_LOG(kLogInfo, "write stop ok");
  if (has_video) close_stream(video, "--- close video OK.");
  if (has_audio) close_stream(audio, "--- close audio OK.");
  oc = nullptr;
  if (any_url(record->info, is_live_url)) {
    ZEVA_LOG(kLogInfo, "--- has rtmp .");
    avformat_network_deinit();
  }
  return true;
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
