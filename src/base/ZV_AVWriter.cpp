#include "ZV_AVWriter.h"

#include <algorithm>
#include <utility>

#include "av_error.h"
#include "codec_by_name.h"
#include "logger.h"
#include "output_url.h"
#include "writer_output.h"
#include "zeva/status.h"

namespace ZV {
namespace {

using zeva::kLogDebug;
using zeva::kLogError;
using zeva::MovieOutput;
using zeva::Status;

// Each further output may lag a little more than the one before it.
constexpr uint32_t kMorePackets = 6;
constexpr uint32_t kMoreAllowance = 3;
constexpr int kMostOthers = 3;  // that a settings record can name

}  // namespace

ZV_AVWriter::ZV_AVWriter(uint32_t max_packets, uint32_t interleave_allowance, const char* url,
                         zeva::Options options)
    : max_packets(max_packets),
      interleave_allowance(interleave_allowance),
      options(std::move(options)) {
  outputs.push_back(std::make_unique<WriterOutput>(*this, "main", url, policy_of(0, url)));
}

zeva::OutputPolicy ZV_AVWriter::policy_of(uint32_t number, const char* url) const {
  zeva::OutputPolicy::Defaults defaults;
  defaults.file_limits.packets = max_packets + number * kMorePackets;
  defaults.stream_limits = defaults.file_limits;
  defaults.interleave_allowance = interleave_allowance + number * kMoreAllowance;
  const bool live = url != nullptr && zeva::is_live_url(url);
  return {defaults, options.policy(number), live};
}

ZV_AVWriter::~ZV_AVWriter() { stop(); }

MovieOutput& ZV_AVWriter::main_output() { return outputs.front()->thread.output; }

// ---- opening

void ZV_AVWriter::create_other_writers(const char* const* urls) {
  ZEVA_LOG(kLogDebug, "@@------------------ create other writers ---------");
  for (int left = kMostOthers; left > 0 && *urls != nullptr; --left, ++urls) {
    ZEVA_LOG(kLogDebug, "other_url: %s", *urls);
    const auto number = static_cast<uint32_t>(outputs.size());
    auto output = std::make_unique<WriterOutput>(*this, "-", *urls, policy_of(number, *urls));
    outputs.push_back(std::move(output));
  }
  ZEVA_LOG(kLogDebug, "@@------------------ create other writers -------OK");
}

void ZV_AVWriter::set_timeout(int timeout_sec) {
  for (const auto& output : outputs) output->thread.output.io.set_timeout(timeout_sec);
}

std::string ZV_AVWriter::codec_fault(AVCodecID codec, Audience audience) {
  for (const auto& output : outputs) {
    if (!output->is_for(audience)) continue;
    const AVOutputFormat* format = output->format(main_output());
    if (format == nullptr || zeva::can_hold(*format, codec)) continue;
    return "'" + output->thread.output.url() + "' cannot hold " + avcodec_get_name(codec);
  }
  return {};
}

int ZV_AVWriter::open_main_io() {
  zeva::OutputThread& main = outputs.front()->thread;
  if (main.opens_itself()) return 0;
  const int result = main.output.open_io();
  if (result >= 0 || !main.policy.optional) return result;
  main.leave_out(result, zeva::av_error_text(result));
  return 0;
}

Status ZV_AVWriter::open(const char* meta_info, const char* index_path) {
  const AVFormatContext& main = *main_output().context();
  for (unsigned i = 0; i < main.nb_streams; ++i) {
    stream_time_bases.push_back(main.streams[i]->time_base);  // before the muxer chooses its own
  }
  for (const auto& output : outputs) {
    if (output->thread.has_failed()) continue;
    Status status = open_output(*output, meta_info, index_path);
    if (status.ok) continue;
    if (main_output().io.exited() || !output->thread.policy.optional) return status;
    output->thread.leave_out(status.code, status.message);
  }
  if (!main_output().io.exited()) return Status::success();
  return Status::failure(-21, "main writer already exited 2");
}

Status ZV_AVWriter::open_output(WriterOutput& writer, const char* meta_info,
                                const char* index_path) {
  MovieOutput& output = writer.thread.output;
  if (main_output().io.exited()) return Status::failure(-20, "main writer already exited");
  const bool is_main = &output == &main_output();
  const std::string path = zeva::file_path(output.url());
  Status status = files.check(path);
  if (status.ok && !is_main) status = clone_main(writer);
  if (status.ok && writer.thread.opens_itself()) {
    output.set_metadata(meta_info);
    writer.thread.note_streams();
    return status;
  }
  if (status.ok && !is_main) status = writer.open_io();
  if (!status.ok) return status;
  files.add(path);
  status = start_index(writer, index_path);
  if (!status.ok) return status;
  if (mean_interval.num != 0) writer.fit_variable_rate(mean_interval);
  output.set_metadata(meta_info);
  const int result = output.write_header();
  if (result < 0) return Status::failure(result, zeva::av_error_text(result));
  output.io.opened();
  writer.thread.note_streams();
  return Status::success();
}

Status ZV_AVWriter::clone_main(WriterOutput& writer) {
  const AVFormatContext& main = *main_output().context();
  const bool same_kind = writer.thread.policy.live == outputs.front()->thread.policy.live;
  std::vector<const AVStream*> streams(main.streams, main.streams + main.nb_streams);
  if (other_pictures != nullptr && !same_kind) streams.front() = other_pictures;
  return writer.clone(main_output(), streams, stream_time_bases);
}

// The movie matters more than its index: without one the recording goes on.
Status ZV_AVWriter::start_index(WriterOutput& writer, const char* index_path) {
  MovieOutput& output = writer.thread.output;
  const bool wanted = index_path != nullptr && index_path[0] != '\0' && !index_given &&
                      zeva::needs_index(*output.context()->oformat);
  if (!wanted) return Status::success();
  Status status = files.check(index_path);
  if (!status.ok) return status;
  index_given = true;
  files.add(index_path);
  const MovieOutput::IndexStart started = output.start_index(index_path);
  if (started == MovieOutput::IndexStart::kNotOpened) {
    ZEVA_LOG(kLogError, "启动快照失败: %s", index_path);
    const std::string text = std::string("the index cannot be created: ") + index_path;
    if (error_callback != nullptr)
      error_callback(kZevaStatusIndexMissing, text.c_str(), error_user);
  } else {
    ZEVA_LOG(kLogError, "启动快照 (%s): %s",
             started == MovieOutput::IndexStart::kStarted ? "success" : "failed", index_path);
  }
  return Status::success();
}

Status ZV_AVWriter::start() {
  if (main_output().io.exited()) {
    ZEVA_LOG(kLogError, "main writer already exited ...");
    return Status::failure(-20, "start failed ...");
  }
  Status status = Status::success();
  for (const auto& output : outputs) {
    if (status.ok) status = output->thread.start();
  }
  return status;
}

// ---- packets

int ZV_AVWriter::write_packet(AVRational time_base, AVPacket* packet, bool interleave,
                              Audience audience) {
  if (packet == nullptr) return 0;
  int result = -1;
  for (const auto& output : outputs) {
    if (!output->is_for(audience)) continue;
    result = std::max(result, output->write(time_base, *packet, interleave));
  }
  return result;
}

// ---- state

bool ZV_AVWriter::output_state(int32_t output, ZevaOutputState& state) {
  const auto number = static_cast<size_t>(output);
  if (output < 0 || number >= outputs.size()) return false;
  outputs[number]->thread.fill(state);
  return true;
}

int32_t ZV_AVWriter::output_count() { return static_cast<int32_t>(outputs.size()); }

int64_t ZV_AVWriter::recorded_us() {
  int64_t newest = -1;
  for (const auto& output : outputs) {
    newest = std::max(newest, output->thread.output.recorded_us());
  }
  return newest;
}

int64_t ZV_AVWriter::slowest_stream_us() {
  int64_t most = 0;
  for (const auto& output : outputs) {
    const zeva::OutputThread& thread = output->thread;
    const int32_t phase = thread.monitor.phase();
    if (!thread.policy.live || (phase != kZevaOutputLive && phase != kZevaOutputDropping)) continue;
    most = std::max(most, thread.queue.backlog().us);
  }
  return most;
}

bool ZV_AVWriter::is_stream_dropping() {
  return std::any_of(outputs.begin(), outputs.end(), [](const auto& output) {
    return output->thread.policy.live && output->thread.monitor.phase() == kZevaOutputDropping;
  });
}

// ---- the end

void ZV_AVWriter::stop_waiting() {
  for (const auto& output : outputs) {
    if (output->thread.policy.live) output->thread.queue.stop_waiting();
  }
}

void ZV_AVWriter::request_exit() {
  for (const auto& output : outputs) output->thread.output.io.exit();
}

void ZV_AVWriter::stop() {
  for (const auto& output : outputs) output->thread.end();
  request_exit();
  for (const auto& output : outputs) output->thread.join();
  for (const auto& output : outputs) output->close();
}

}  // namespace ZV
