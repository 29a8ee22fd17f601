#include "mux_outputs.h"

#include <algorithm>
#include <utility>

#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

constexpr int32_t kNoOutput = -33;
constexpr int kVideoRefused = -101;
constexpr int kAudioRefused = -102;

}  // namespace

MuxOutputs::MuxOutputs(const MuxSettings& settings, const Options& options,
                       MovieOutput::Report report)
    : settings(settings), options(options), report(std::move(report)) {}

// ---- the worker thread

Status MuxOutputs::open(const AVStream* video_stream, const AVStream* audio_stream) {
  index_given = settings.moov.empty();
  Status status = open_next(settings.url, video_stream, audio_stream);
  for (const std::string& url : settings.others) {
    if (status.ok) status = open_next(url, video_stream, audio_stream);
  }
  if (status.ok && outputs.empty()) return Status::failure(kNoOutput, "no valid output url");
  // None is written before all are open: a start that fails leaves no beginning of a movie behind.
  for (const auto& output : outputs) {
    if (status.ok) status = output->start();
  }
  return status;
}

Status MuxOutputs::open_next(const std::string& url, const AVStream* video_stream,
                             const AVStream* audio_stream) {
  if (url.empty()) return Status::success();
  const AVOutputFormat* format = guess_output_format(url.c_str());
  const bool indexed = !index_given && format != nullptr && needs_index(*format);
  index_given = index_given || indexed;
  OutputContext* output = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    outputs.push_back(std::make_unique<OutputContext>(url, options.policy(outputs.size()), report));
    output = outputs.back().get();
    if (stopping) output->give_up_soon();
  }
  Status status =
      output->open(video_stream, audio_stream, indexed ? settings.moov : "", settings.meta, files);
  if (status.ok) return status;
  const std::lock_guard<std::mutex> lock(mutex);
  outputs.pop_back();
  return status;
}

int MuxOutputs::route(const AVPacket* packet, AVRational time_base, const char* name) const {
  if (name[0] != 'h' && name[0] != 'a') {
    // Also the end of the inputs: trailers are written by the outputs' own threads.
    ZEVA_LOG(kLogInfo, "recieve frame: '%s', ignore", name);
    return 0;
  }
  const bool video = name[0] == 'h';
  const int refused = video ? kVideoRefused : kAudioRefused;
  const bool any_takes = std::any_of(outputs.begin(), outputs.end(),
                                     [](const auto& output) { return output->takes_packets(); });
  if (!any_takes) return refused;
  for (const auto& output : outputs) {
    const bool taken =
        video ? output->enqueue_video(packet, time_base) : output->enqueue_audio(packet, time_base);
    if (!taken) return refused;
  }
  return 0;
}

bool MuxOutputs::close(const std::function<void(const Status&)>& failed) {
  bool ended_before = false;
  for (const auto& output : outputs) output->finish();
  for (const auto& output : outputs) {
    output->close();
    ended_before = ended_before || output->finished_early() || !output->failure().ok;
    if (!output->failure().ok) failed(output->failure());
  }
  return ended_before;
}

// ---- any thread

void MuxOutputs::enter(Phase next) {
  const std::lock_guard<std::mutex> lock(mutex);
  phase = next;
  if (phase == Phase::kEnding && stopping) give_up_soon_locked();
}

void MuxOutputs::give_up_soon_locked() {
  for (const auto& output : outputs) output->give_up_soon();
}

void MuxOutputs::stop() {
  const std::lock_guard<std::mutex> lock(mutex);
  stopping = true;
  if (phase != Phase::kRecording) give_up_soon_locked();
  for (const auto& output : outputs) output->stop_waiting();
}

bool MuxOutputs::backlog(int32_t* packets) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (phase == Phase::kOpening) return true;
  *packets = 0;
  for (const auto& output : outputs) {
    if (output->ends_recording()) return false;
    if (!output->is_optional()) *packets = std::max(*packets, output->queued());
  }
  return true;
}

bool MuxOutputs::state(int32_t output, ZevaOutputState& state) {
  const auto number = static_cast<size_t>(output);
  const std::lock_guard<std::mutex> lock(mutex);
  if (output < 0 || number >= settings.output_count()) return false;
  if (number < outputs.size()) {
    outputs[number]->fill(state);
  } else {
    state.phase = kZevaOutputOpening;
    state.last_error_us = state.synced_us = state.disk_free_bytes = -1;
  }
  return true;
}

int64_t MuxOutputs::recorded_us() {
  const std::lock_guard<std::mutex> lock(mutex);
  int64_t newest = -1;
  for (const auto& output : outputs) newest = std::max(newest, output->recorded_us());
  return newest;
}

}  // namespace zeva
