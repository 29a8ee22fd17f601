#include "movie_muxer.h"

#include <iterator>

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
  phase = Phase::kOpening;
  if (any_url(info, is_live_url)) avformat_network_init();
  disable_video = info.disable_video;
  disable_audio = info.disable_audio;
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
    } else {
      tell(e.code, e.what());
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
    tell(kNoContextCode, "output context is NULL");
    return;
  }
  open_encoders(info);
  open_url(info);
  open_writer(info);
  phase = Phase::kRunning;
  tell(kOpenedCode, "start OK");
}

void MovieMuxer::tell(int code, const std::string& text) const {
  if (record->callback != nullptr) record->callback(code, text.c_str(), record->user);
}

void MovieMuxer::open_encoders(MovieInfo& info) {
  const CodecChoice codecs = choose_codecs(oc.get(), info);
  writer->create_other_writers(info.other_urls);
  writer->set_timeout(info.timeout_sec);
  // Pictures come first: their stream has index 0.
  if (codecs.video != AV_CODEC_ID_NONE) video_enc = make_encoder<VideoEnc>(codecs.video, info);
  info.hardware = info.hardware && video_enc;
  if (codecs.audio != AV_CODEC_ID_NONE) audio_enc = make_encoder<AudioEnc>(codecs.audio, info);
  Status opened;
  if (video_enc) opened = video_enc->open(info);
  if (opened.ok && audio_enc) opened = audio_enc->open(info);
  if (opened.ok) return;
  info.hardware = false;
  audio_enc.reset();
  video_enc.reset();
  throw ZVException(kOpeningFailedCode, opened.message);
}

// Null when no stream for the codec could be added.
template <typename Encoder>
std::unique_ptr<Encoder> MovieMuxer::make_encoder(AVCodecID codec, MovieInfo& info) {
  NewStream added = add_stream(oc.get(), codec, info);
  if (!added.encoder) return nullptr;
  return std::make_unique<Encoder>(std::move(added), writer.get(),
                                   [this](int code, const std::string& text) { tell(code, text); });
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

bool MovieMuxer::write_video(AVFrame* frame, AVRational tb) {
  VideoEnc* enc = video_encoder();
  if (enc == nullptr) return false;
  frame->pts = av_rescale_q(frame->pts, tb, enc->time_base());
  if (frame->pts <= last_video_time) {
    ZEVA_LOG(kLogDebug, "@@@ V pts: %lld  (frame->pts <= g_last_v_pts %lld)",
             static_cast<long long>(frame->pts), static_cast<long long>(last_video_time));
    return false;
  }
  last_video_time = frame->pts;
  last_video_pts = av_rescale_q(frame->pts, enc->time_base(), kMicroseconds);
  return enc->encode(frame) >= 0;
}

bool MovieMuxer::write_audio(AVFrame* frame, AVRational tb) {
  AudioEnc* enc = audio_encoder();
  if (enc == nullptr) return false;
  frame->pts = av_rescale_q(frame->pts, tb, enc->time_base());
  last_audio_pts = av_rescale_q(frame->pts, enc->time_base(), kMicroseconds);
  // Sound whose time does not grow is encoded all the same, as the next frame overlaps with it; the
  // outputs drop its packet.
  const bool grows = frame->pts > newest_audio_time;
  if (grows) newest_audio_time = frame->pts;
  return enc->encode(frame) >= 0 && grows;
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

  FormatContextPtr context = std::move(oc);
  if (!context) return true;
  if (!running()) {
    ZEVA_LOG(kLogInfo, "end begin... ======  maybe start rtmp thread blocking ..");
  }
  phase = Phase::kStopping;
  if (audio_enc) audio_enc->encode(nullptr);
  if (video_enc) video_enc->encode(nullptr);

  ZEVA_LOG(kLogInfo, "before write stop ...");
  writer->stop();
  ZEVA_LOG(kLogInfo, "write stop ok");
  close_encoders();
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
