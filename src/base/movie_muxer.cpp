#include "movie_muxer.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "av_error.h"
#include "encoder_opening.h"
#include "logger.h"
#include "movie_output.h"
#include "output_opening.h"
#include "output_url.h"
#include "picture_colours.h"
#include "settings_check.h"
#include "stream_pictures.h"
#include "stream_setup.h"

namespace zeva {
namespace {

std::string audio_option(const Options& options) {
  return options.channels == 0 ? "" : "channels " + std::to_string(options.channels);
}

}  // namespace

MovieMuxer::MovieMuxer(std::unique_ptr<ZV::ZV_AVWriter> writer)
    : writer(std::move(writer)),
      tell_host([this](int code, const std::string& text) { tell(code, text); }),
      pictures(*this->writer, tell_host) {}

MovieMuxer::~MovieMuxer() {
  stop();
  ZEVA_LOG(kLogInfo, "~movie muxer ...");
  audio_enc.reset();
  ZEVA_LOG(kLogInfo, "delete audio OK");
  pictures.reset();
  ZEVA_LOG(kLogInfo, "delete video OK");
  ZEVA_LOG(kLogInfo, "~movie muxer OK");
}

// ---- start

int MovieMuxer::start(const MovieInfo& info, const Options& options, StatusCallback cb, void* user,
                      bool async) {
  phase = Phase::kOpening;
  if (has_live_output(info)) avformat_network_init();
  disable_video = info.disable_video;
  disable_audio = info.disable_audio;
  record = std::make_unique<StartRecord>();
  record->info = info;
  record->options = options;
  record->callback = cb;
  record->user = user;
  {
    const std::lock_guard<std::mutex> lock(settings_mutex);
    effective = info;
  }
  writer->create_other_writers(info.other_urls);
  writer->set_timeout(info.timeout_sec);
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
  Status opened;
  try {
    opened = open(record->info);
  } catch (const std::exception& e) {
    opened = Status::failure(kOpeningFailedCode, e.what());
  }
  if (opened.ok) return;
  ZEVA_LOG(kLogError, " ---- catch error --- : %s", opened.message.c_str());
  writer->stop();  // a host may keep the handle of a failed start for long
  if (record->exited) {
    ZEVA_LOG(kLogError, "=#= catch exception: already exited, ignore ...");
    return;
  }
  tell(opened.code, opened.message);
}

Status MovieMuxer::open(MovieInfo& info) {
  const Options& options = record->options;
  std::string fault = options.fault();
  if (fault.empty() && options.has_rate()) {
    info.fps = nearest_fps({options.rate_num, options.rate_den});
  }
  if (fault.empty()) fault = settings_fault(info);
  if (fault.empty() && !info.disable_video) fault = colours_fault(info, options);
  if (fault.empty() && !info.disable_video) fault = streams_fault(info, options);
  Status status = fault.empty() ? open_main(info) : refused(fault);
  if (status.ok) status = open_encoders(info);
  if (status.ok) status = open_url(info);
  if (status.ok) status = open_writer(info);
  if (!status.ok) return status;
  phase = Phase::kRunning;
  tell(kOpenedCode, "start OK");
  return status;
}

void MovieMuxer::tell(int code, const std::string& text) const {
  if (record->callback != nullptr) record->callback(code, text.c_str(), record->user);
}

Status MovieMuxer::open_main(const MovieInfo& info) {
  AVOutputFormat* const format = guess_output_format(info.url);
  if (format == nullptr) return Status::failure(kNoFormatCode, "@ av_guess_format(...) is NULL");
  MovieOutput& output = writer->main_output();
  if (output.create(format) < 0) {
    return Status::failure(kNoContextCode, "@ alloc context failed ...");
  }
  if (is_live_url(info.url)) output.set_server_timeout(int64_t{info.timeout_sec} * 1000000);
  return Status::success();
}

Status MovieMuxer::open_encoders(MovieInfo& info) {
  const Options& options = record->options;
  CodecChoice codecs = choose_codecs(*writer->main_output().context()->oformat, info);
  Status status = choose_named_codecs(info, options, *writer, codecs);
  // Pictures come first: their stream has index 0.
  if (status.ok) status = pictures.open(codecs.video, info, options);
  info.hardware = info.hardware && pictures.first() != nullptr;
  if (status.ok) status = open_sound(codecs.audio, info);
  if (!status.ok) {
    info.hardware = false;
    pictures.reset();
    return status;
  }
  if (pictures.first() != nullptr && options.variable_rate) {
    writer->set_variable_rate(pictures.first()->interval());
  }
  writer->request_key_picture = [this] { pictures.request_key_picture(); };
  return status;
}

Status MovieMuxer::open_sound(AVCodecID codec, MovieInfo& info) {
  if (codec == AV_CODEC_ID_NONE) return Status::success();
  const Options& options = record->options;
  NewStream added = add_stream(writer->main_output().context(), codec, info, options);
  return open_encoder(std::move(added), codec, info, audio_option(options), *writer, tell_host,
                      audio_enc);
}

Status MovieMuxer::open_url(const MovieInfo& info) {
  const int result = writer->open_main_io();
  if (result >= 0) return Status::success();
  ZEVA_LOG(kLogError, "Could not open '%s': %s", info.url, av_error_text(result));
  return Status::failure(kNoUrlCode, "Could not open url");
}

Status MovieMuxer::open_writer(const MovieInfo& info) {
  ZEVA_LOG(kLogError, "@@-- moov: %s", info.moov_url);
  const Status opened = writer->open(info.meta_info, info.moov_url);
  if (!opened.ok) {
    ZEVA_LOG(kLogError, "(%d) %s", opened.code, opened.message.c_str());
    return Status::failure(kOpeningFailedCode, opened.message);
  }
  {
    const std::lock_guard<std::mutex> lock(settings_mutex);
    effective = info;
  }
  const Status started = writer->start();
  return started.ok ? started : Status::failure(kOpeningFailedCode, started.message);
}

// ---- frames

bool MovieMuxer::write_video(AVFrame* frame, AVRational tb) {
  VideoEnc* enc = video_encoder();
  if (enc == nullptr || writer->refuses_frames()) return false;
  frame->pkt_duration = av_rescale_q(frame->pkt_duration, tb, enc->time_base());
  frame->pts = av_rescale_q(frame->pts, tb, enc->time_base());
  if (frame->pts <= last_video_time) {
    ZEVA_LOG(kLogDebug, "@@@ V pts: %lld  (frame->pts <= g_last_v_pts %lld)",
             static_cast<long long>(frame->pts), static_cast<long long>(last_video_time));
    return false;
  }
  last_video_time = frame->pts;
  last_video_pts = av_rescale_q(frame->pts, enc->time_base(), kMicroseconds);
  return pictures.encode(frame, recording_figures.cost) >= 0;
}

bool MovieMuxer::write_audio(AVFrame* frame, AVRational tb) {
  AudioEnc* enc = audio_encoder();
  if (enc == nullptr || writer->refuses_frames()) return false;
  frame->pts = av_rescale_q(frame->pts, tb, enc->time_base());
  last_audio_pts = av_rescale_q(frame->pts, enc->time_base(), kMicroseconds);
  // Sound whose time does not grow is encoded all the same, as the next frame overlaps with it; the
  // outputs drop its packet.
  const bool grows = frame->pts > newest_audio_time;
  if (grows) newest_audio_time = frame->pts;
  return enc->encode(frame) >= 0 && grows;
}

void MovieMuxer::fill(ZevaStatistics& statistics) const {
  statistics.outputs = writer->output_count();
  statistics.crash_cost_us = -1;
  // The encoded count is read before the given one, so that it is never more.
  if (running()) fill_encoded(statistics);
  recording_figures.fill(statistics);
}

void MovieMuxer::fill_encoded(ZevaStatistics& statistics) const {
  pictures.fill(statistics);
  const int64_t picture = pictures.first() != nullptr ? pictures.first()->end_us() : AV_NOPTS_VALUE;
  const int64_t sound = audio_enc ? audio_enc->end_us() : AV_NOPTS_VALUE;
  const int64_t recorded = writer->recorded_us();
  const int64_t newest = std::max({picture, sound, recorded});
  if (recorded >= 0) statistics.crash_cost_us = newest - recorded;
  if (!audio_enc) return;
  statistics.sound_us_encoded = audio_enc->duration_us();
  if (sound != AV_NOPTS_VALUE && picture != AV_NOPTS_VALUE) {
    statistics.sound_minus_picture_us = sound - picture;
  }
}

bool MovieMuxer::is_sound_steady() {
  const AudioEnc* enc = audio_encoder();
  return enc != nullptr && enc->is_steady();
}

bool MovieMuxer::repeat_sound(int64_t frames) {
  AudioEnc* enc = audio_encoder();
  return enc != nullptr && enc->repeat(frames);
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
  if (!running()) writer->request_exit();
  if (record->thread.joinable()) record->thread.join();

  if (phase == Phase::kStopping) return true;
  const bool was_running = running();
  if (!was_running) {
    ZEVA_LOG(kLogInfo, "end begin... ======  maybe start rtmp thread blocking ..");
  }
  phase = Phase::kStopping;
  writer->stop_waiting();
  if (was_running && audio_enc) audio_enc->encode(nullptr);
  if (was_running) pictures.flush();

  ZEVA_LOG(kLogInfo, "before write stop ...");
  writer->stop();
  ZEVA_LOG(kLogInfo, "write stop ok");
  close_encoders();
  if (has_live_output(record->info)) {
    ZEVA_LOG(kLogInfo, "--- has rtmp .");
    avformat_network_deinit();
  }
  return true;
}

void MovieMuxer::close_encoders() {
  if (pictures.first() != nullptr) {
    pictures.close();
    ZEVA_LOG(kLogInfo, "--- close video OK.");
  }
  if (audio_enc) {
    audio_enc->close();
    ZEVA_LOG(kLogInfo, "--- close audio OK.");
  }
}

}  // namespace zeva
