#include "av_mux.h"

#include <algorithm>
#include <exception>

#include "av_error.h"
#include "clock.h"
#include "host_call.h"
#include "logger.h"
#include "output_url.h"
#include "saturating.h"
#include "versioned_record.h"
#include "zeva/status.h"

namespace zeva {
namespace {

enum StatusCode : int32_t { kNoEncoder = -10, kNoFilter = -11, kNoOutput = -33 };

constexpr int kDisplayMatrixBytes = 9 * sizeof(int32_t);

long long printable(int64_t value) { return value; }

bool is_packet(const void* data, int nbytes) { return data != nullptr && nbytes >= 1; }

// Clockwise. The outputs take it over from the input's stream.
bool rotate(AVStream* stream, int degrees) {
  if (stream == nullptr || degrees == 0) return true;
  auto* const matrix = reinterpret_cast<int32_t*>(
      av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, kDisplayMatrixBytes));
  // FFmpeg calls it counterclockwise, of the frame against the player.
  if (matrix != nullptr) av_display_rotation_set(matrix, degrees);
  return matrix != nullptr;
}

void start_network_once() {
  static std::once_flag once;
  std::call_once(once, [] { avformat_network_init(); });
}

}  // namespace

AVMux::AVMux(const MovieInfo2& info, const Options& host_options, ZEVA2_status_callback status_cb,
             void* user)
    : settings(info),
      options(host_options),
      outputs(settings, options,
              [this](int32_t code, const std::string& text) { report(code, text); }),
      status_cb(status_cb),
      user(user) {
  settings.log();
  if (options.common_start) audio_clock.begin = video_clock.begin = 0;
  input.tell = [this](int32_t code, const std::string& text) { report(code, text); };
}

AVMux::~AVMux() {
  ZEVA_LOG(kLogInfo, "~ AVMux()");
  end_worker();  // also when stop was cut short
  clear();
}

void AVMux::clear() {
  ZEVA_LOG(kLogInfo, "clear(): begin");
  input.clear();
  outputs.clear();
  ZEVA_LOG(kLogInfo, "clear(): end");
}

// ---- start and stop

bool AVMux::start() {
  const std::string fault = options.fault();
  if (!fault.empty()) return refuse(AVERROR(EINVAL), fault.c_str());
  if (settings.encodes_pcm()) {
    aac_encoder = AACEncoder::create(settings.audio, AACEncoder::kGlobalHeader);
    if (!aac_encoder) return refuse(kNoEncoder, "create AACEncoder failed");
  }
  if (settings.declares_parameter_sets()) {
    annexb = h264::AnnexBFilter::create(settings.sets);
    if (!annexb) return refuse(kNoFilter, "create AnnexB-filter failed");
  }
  worker = std::thread(&AVMux::work, this);
  return true;
}

bool AVMux::refuse(int code, const char* text) {
  ZEVA_LOG(kLogError, "%s ...", text);
  if (status_cb != nullptr) status_cb(code, text, user);
  return false;
}

void AVMux::stop() {
  ZEVA_LOG(kLogInfo, "Muxer Stop() ing... (%p);  total_video_npkt=%lld, total_audio_npkt=%lld",
           static_cast<void*>(this), printable(total_video_npkt), printable(total_audio_npkt));
  try {
    flush_inputs();
  } catch (const std::exception& e) {
    ZEVA_LOG(kLogError, "packets that were held back are lost: %s", e.what());
  }
  end_worker();
}

void AVMux::end_worker() {
  aborted = true;
  if (!worker.joinable()) return;
  ZEVA_LOG(kLogInfo, "abort pkt queues ...");
  input.que_abort();
  outputs.stop();
  ZEVA_LOG(kLogInfo, "release muxer later ing... (%p)", static_cast<void*>(this));
  worker.join();
}

void AVMux::flush_inputs() {
  // Once aborted nobody reads the queues, and a full one would only be waited for.
  ZEVA_LOG(kLogInfo, "flush video pkt queue ...");
  if (!aborted) write_video_packet(nullptr, 0, 0);
  ZEVA_LOG(kLogInfo, "flush audio pkt queue ...");
  if (aborted) return;
  if (settings.encodes_pcm()) {
    write_audio_pcm(nullptr, 0, 0);
  } else {
    write_audio_packet(nullptr, 0, 0);
  }
}

// ---- the worker thread

void AVMux::work() {
  try {
    record();
  } catch (const std::exception& e) {
    pop_status(Status::failure(AVERROR(ENOMEM), e.what()));
  }
  ZEVA_LOG(kLogInfo, "thread finished");
  aborted = true;
}

void AVMux::record() {
  bool network = is_live_url(settings.url.c_str());
  for (const std::string& url : settings.others) network = network || is_live_url(url.c_str());
  if (network) start_network_once();
  pop_status({true, 0, "start success"});
  Status status = input.open_inputs(settings.has_audio() ? "aac" : nullptr,
                                    settings.has_video() ? "h264" : nullptr);
  if (status.ok) status = open_outputs();
  if (!status.ok) {
    pop_status(status);
    return;
  }
  outputs.begin_recording();
  const int ended = input.run_demux(
      [](AVPacket* packet, AVRational time_base, const char* name, void* all) {
        return static_cast<const MuxOutputs*>(all)->route(packet, time_base, name);
      },
      &outputs);
  // Nobody takes packets any more, whatever made the loop end: hosts learn it now, not after the
  // files are finished.
  aborted = true;
  outputs.begin_ending();
  // Whoever was told of an output that ended before knows the reason.
  const bool told = outputs.close([this](const Status& failure) { pop_status(failure); });
  if (told || ended >= 0) return;
  pop_status(
      Status::failure(ended, std::string("the recording ended early: ") + av_error_text(ended)));
}

Status AVMux::open_outputs() {
  if (!rotate(input.video_stream(), options.rotation_deg)) {
    return Status::failure(AVERROR(ENOMEM), "no memory for the rotation");
  }
  // Outputs without negative times make room for it.
  AVStream* const sound = input.audio_stream();
  if (aac_encoder && sound != nullptr) {
    sound->codecpar->initial_padding = aac_encoder->delay_samples();
  }
  return outputs.open(input.video_stream(), sound);
}

// On any of the library's threads.
void AVMux::report(int32_t code, const std::string& text) {
  if (status_cb == nullptr) return;
  const HostCall call(this);
  status_cb(code, text.c_str(), user);
}

void AVMux::pop_status(const Status& status) {
  const int code = status.ok ? 0 : status.code;
  ZEVA_LOG(status.ok ? kLogInfo : kLogError, "pop_status: [code=%d] *** msg=%s", code,
           status.message.c_str());
  if (code != 0) aborted = true;
  report(code, status.message);
}

// ---- the host's threads

int64_t AVMux::rebase(StreamClock* clock, int64_t usec) {
  if (clock->begin == -1 || clock->begin == -2) clock->begin = usec;
  const int64_t time = saturating_sub(usec, saturating_add(clock->begin, pause_drift));
  if (time > 0) clock->time = time;
  return time;
}

bool AVMux::write_video_packet(const void* data, int nbytes, int64_t usec) {
  return write_counted(data, nbytes, {usec, 0, false});
}

bool AVMux::write_video_packet2(const void* data, int nbytes, int64_t pts_us, int64_t dts_us) {
  return write_counted(data, nbytes, {pts_us, saturating_sub(pts_us, dts_us), true});
}

bool AVMux::write_counted(const void* data, int nbytes, const PictureTimes& times) {
  if (!is_packet(data, nbytes)) return write_picture(data, nbytes, times);
  figures.begin_picture();
  const bool taken = write_picture(data, nbytes, times);
  figures.end_picture(taken, 0);
  return taken;
}

bool AVMux::write_picture(const void* data, int nbytes, const PictureTimes& times) {
  if (!settings.has_video()) return false;
  if (!is_packet(data, nbytes)) return input.video.push_data(nullptr, 0, 0);
  if (input.video.refuses()) return false;
  if (!annexb) {
    return take_access_unit(static_cast<const uint8_t*>(data), static_cast<size_t>(nbytes), times);
  }
  return annexb->filter(data, nbytes, times.pts_us,
                        [&](const uint8_t* filtered, int filtered_bytes, int64_t pts_us) {
                          take_access_unit(filtered, static_cast<size_t>(filtered_bytes),
                                           {pts_us, times.delay_us, times.exact});
                        });
}

// Only pictures have a place on the time line. What is no picture is kept or left out, and counts
// as taken.
bool AVMux::take_access_unit(const uint8_t* data, size_t size_bytes, const PictureTimes& times) {
  AccessUnitAssembler::Parts parts;
  if (!assembler.take(data, size_bytes, &parts)) return true;
  const auto& [slices, pictures] = parts;
  if (slices.size_bytes > 0 && !input.video.append_to_newest(slices.data, slices.size_bytes)) {
    ZEVA_LOG(kLogError, "%zu bytes of slices are left out: their picture is gone",
             slices.size_bytes);
  }
  if (pictures.size_bytes == 0) return true;
  ++total_video_npkt;
  const int64_t time = rebase(&video_clock, times.pts_us);
  ZEVA_LOG(kLogDebug, "Write-Video() : in_pts=%lld,  begin=%lld, pause_drift=%lld, --> usec=%lld",
           printable(times.pts_us), printable(video_clock.begin), printable(pause_drift),
           printable(time));
  PacketTimes rebased;
  rebased.dts = saturating_sub(time, times.delay_us);
  rebased.delay = times.delay_us;
  rebased.exact = times.exact;
  return input.video.push_timed(pictures.data, static_cast<int32_t>(pictures.size_bytes), rebased);
}

bool AVMux::write_audio_packet(const void* data, int nbytes, int64_t usec) {
  if (!settings.has_audio()) return false;
  if (!is_packet(data, nbytes) && !aac_encoder) return input.audio.push_data(nullptr, 0, 0);
  if (input.audio.refuses()) return false;
  ++total_audio_npkt;
  const int64_t time = rebase(&audio_clock, usec);
  // The picture's begin beside the sound's time: what readers of these logs compare.
  ZEVA_LOG(kLogDebug, "Write-Audio() : in_pts=%lld,  begin=%lld, pause_drift=%lld, --> usec=%lld",
           printable(usec), printable(video_clock.begin), printable(pause_drift), printable(time));
  if (aac_encoder) {
    ZEVA_LOG(kLogWarning, "Warnning: input AAC packet, dose not need AACEncoder...");
    return false;
  }
  return input.audio.push_data(data, nbytes, time);
}

bool AVMux::write_audio_pcm(const uint8_t* const* planes, int nb_samples, int64_t usec) {
  if (!settings.has_audio()) return false;
  const auto sink = [this](const uint8_t* data, int nbytes, int64_t pts, int64_t duration) {
    PacketTimes times;
    times.dts = pts;
    times.duration = duration;
    times.exact = true;
    input.audio.push_timed(data, nbytes, times);
  };
  const bool flush = planes == nullptr || nb_samples < 1;
  // Also while paused: what was written before the pause is to be given out.
  if (flush && aac_encoder) {
    return !input.audio.is_left_out() && aac_encoder->encode(nullptr, 0, 0, sink);
  }
  if (!flush && aac_encoder)
    figures.give_sound(av_rescale(nb_samples, 1000000, settings.audio.sample_rate));
  if (!flush && input.audio.refuses()) return false;
  ++total_audio_npkt;
  if (is_paused()) return false;
  const int64_t time = rebase(&audio_clock, usec);
  if (!aac_encoder) {
    ZEVA_LOG(kLogError, "input pcm, aac==nullptr, must exist AACEncoder ...");
    return false;
  }
  return aac_encoder->encode(planes, nb_samples, time, sink);
}

bool AVMux::pause() {
  pause_start = steady_us();
  return true;
}

bool AVMux::resume() {
  const int64_t start = pause_start.exchange(0);
  if (start <= 0) return false;
  pause_drift += steady_us() - start;
  return true;
}

bool AVMux::backlog(Backlog* backlog) {
  if (aborted) return false;
  backlog->video = input.video.size();
  backlog->audio = input.audio.size();
  return outputs.backlog(&backlog->outputs);
}

bool AVMux::output_state(int32_t output, ZevaOutputState& state) {
  ZevaOutputState full{};
  return outputs.state(output, full) && fill_record(full, state);
}

bool AVMux::statistics(ZevaStatistics& statistics) {
  ZevaStatistics full{};
  figures.fill(full);
  full.outputs = static_cast<int32_t>(settings.output_count());
  full.pictures_encoded = full.pictures_given - full.pictures_refused;
  const int64_t recorded = outputs.recorded_us();
  const int64_t newest = std::max(video_clock.time.load(), audio_clock.time.load());
  full.crash_cost_us = recorded < 0 ? -1 : std::max<int64_t>(newest - recorded, 0);
  full.sound_minus_picture_us = audio_clock.time - video_clock.time;
  return fill_record(full, statistics);
}

int64_t AVMux::movie_time() const {
  const int64_t video_time = video_clock.time;
  return video_time > 0 ? video_time : audio_clock.time.load();
}

}  // namespace zeva
