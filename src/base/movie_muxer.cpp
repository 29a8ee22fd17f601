#include "movie_muxer.h"

#include <exception>
#include <iterator>

#include "av_error.h"
#include "codec_by_name.h"
#include "logger.h"
#include "movie_output.h"
#include "output_opening.h"
#include "output_url.h"
#include "picture_colours.h"
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

// A movie without its pictures or its sound is not what the host asked for.
Status no_encoder(AVCodecID codec) {
  return Status::failure(kOpeningFailedCode,
                         std::string("Could not find encoder for '") + avcodec_get_name(codec) +
                             "'; disable the stream or choose another kind of file");
}

Status refused(const std::string& fault) {
  return Status::failure(AVERROR(EINVAL), av_error_text(AVERROR(EINVAL)) + (": " + fault));
}

// A failure that an option may have caused names it.
template <typename Encoder>
Status open_encoder(Encoder* encoder, const MovieInfo& info, const std::string& option) {
  if (encoder == nullptr) return Status::success();
  Status opened = encoder->open(info);
  if (opened.ok) return opened;
  if (option.empty()) return Status::failure(kOpeningFailedCode, opened.message);
  return refused(option + ": " + opened.message);
}

std::string video_option(const Options& options) {
  return options.encoder_options.empty() ? "" : "encoder_options '" + options.encoder_options + "'";
}

std::string audio_option(const Options& options) {
  return options.channels == 0 ? "" : "channels " + std::to_string(options.channels);
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

int MovieMuxer::start(const MovieInfo& info, const Options& options, StatusCallback cb, void* user,
                      bool async) {
  phase = Phase::kOpening;
  if (any_url(info, is_live_url)) avformat_network_init();
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
  Status status = choose_named_codecs(info, codecs);
  // Pictures come first: their stream has index 0.
  if (status.ok) status = make_encoder(codecs.video, info, video_enc);
  info.hardware = info.hardware && video_enc;
  if (status.ok) status = make_encoder(codecs.audio, info, audio_enc);
  if (status.ok) status = open_encoder(video_enc.get(), info, video_option(options));
  if (status.ok) status = open_encoder(audio_enc.get(), info, audio_option(options));
  if (status.ok) {
    if (video_enc && options.variable_rate) writer->set_variable_rate(video_enc->interval());
    return status;
  }
  info.hardware = false;
  audio_enc.reset();
  video_enc.reset();
  return status;
}

// Takes the encoders that the host names for the streams that there are to be.
Status MovieMuxer::choose_named_codecs(const MovieInfo& info, CodecChoice& codecs) {
  const Options& options = record->options;
  const struct {
    const char* field;
    const std::string& name;
    AVMediaType type;
    bool disabled;
    AVCodecID& codec;
  } streams[] = {
      {"video_codec", options.video_codec, AVMEDIA_TYPE_VIDEO, info.disable_video, codecs.video},
      {"audio_codec", options.audio_codec, AVMEDIA_TYPE_AUDIO, info.disable_audio, codecs.audio},
  };
  for (const auto& stream : streams) {
    if (stream.disabled || stream.name.empty()) continue;
    std::string fault;
    const AVCodec* codec = find_named_encoder(stream.field, stream.name, stream.type, fault);
    if (codec == nullptr) return refused(fault);
    fault = writer->codec_fault(codec->id);
    if (!fault.empty()) {
      return refused(std::string(stream.field) + " '" + stream.name + "': " + fault);
    }
    stream.codec = codec->id;
  }
  return Status::success();
}

// Adds a stream and its encoder, unless there is to be none.
template <typename Encoder>
Status MovieMuxer::make_encoder(AVCodecID codec, MovieInfo& info,
                                std::unique_ptr<Encoder>& encoder) {
  if (codec == AV_CODEC_ID_NONE) return Status::success();
  NewStream added = add_stream(writer->main_output().context(), codec, info, record->options);
  if (!added.fault.empty()) return refused(added.fault);
  if (!added.encoder) return no_encoder(codec);
  encoder =
      std::make_unique<Encoder>(std::move(added), writer.get(),
                                [this](int code, const std::string& text) { tell(code, text); });
  return Status::success();
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
  AVFrame* const shown = enc->filtered(frame);
  return shown != nullptr && enc->encode(shown, frame->pkt_duration) >= 0;
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
  if (was_running && video_enc) video_enc->encode(nullptr);

  ZEVA_LOG(kLogInfo, "before write stop ...");
  writer->stop();
  ZEVA_LOG(kLogInfo, "write stop ok");
  close_encoders();
  if (any_url(record->info, is_live_url)) {
    ZEVA_LOG(kLogInfo, "--- has rtmp .");
    avformat_network_deinit();
  }
  return true;
}

void MovieMuxer::close_encoders() {
  if (video_enc) {
    video_enc->close();
    ZEVA_LOG(kLogInfo, "--- close video OK.");
  }
  if (audio_enc) {
    audio_enc->close();
    ZEVA_LOG(kLogInfo, "--- close audio OK.");
  }
}

}  // namespace zeva
