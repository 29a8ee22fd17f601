#include "output_thread.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "av_error.h"
#include "clock.h"
#include "logger.h"

namespace zeva {
namespace {

// Between connections. Each is taken twice before it doubles: most servers that are started anew
// are back within a second.
class Waits {
 public:
  explicit Waits(const OutputPolicy& policy)
      : wait_us(policy.reconnect_first_us), longest_us(policy.reconnect_longest_us) {}

  int64_t next() {
    const int64_t current = wait_us;
    if (again) wait_us = std::min(2 * wait_us, longest_us);
    again = !again;
    return current;
  }

 private:
  int64_t wait_us;
  const int64_t longest_us;
  bool again = false;
};

constexpr int kDiskPeriodMs = 1000;

}  // namespace

OutputThread::OutputThread(std::string url, const OutputPolicy& policy, OutputListener& listener,
                           MovieOutput::Report report, const MovieOutput::DiskCalls& calls)
    : policy(policy),
      monitor(url, report, policy.live && policy.optional),
      queue(policy, monitor, policy.live && policy.optional),
      output(std::move(url), std::move(report), calls),
      listener(listener) {
  output.keep_free(policy.keep_free_bytes);
  // The grace of a stop is also for a stream that is still connecting: what is queued is for it.
  if (opens_itself()) output.io.opened();
}

void OutputThread::leave_out(int code, const std::string& why) {
  failed = true;
  monitor.note_error(code);
  monitor.enter(kZevaOutputGivenUp, why);
  (void)monitor.tell_due();
}

Status OutputThread::start() try {
  if (failed) return Status::success();
  (void)watch_disk();
  if (!opens_itself()) monitor.enter(kZevaOutputLive);
  thread = std::thread(&OutputThread::run, this);
  return Status::success();
} catch (const std::system_error& e) {
  return Status::failure(AVERROR(EAGAIN), "no thread to write '" + output.url() + "': " + e.what());
}

// Packets are queued in these units, whatever the muxer of a later connection chooses.
void OutputThread::note_streams() {
  const AVFormatContext& context = *output.context();
  std::vector<OutputQueue::Stream> streams;
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVStream& stream = *context.streams[i];
    streams.push_back({stream.time_base, stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO,
                       stream.codecpar->video_delay > 0});
  }
  queue.set_streams(std::move(streams));
}

int OutputThread::put(const AVPacket& packet, bool interleave) {
  if (!takes_packets()) return -1;
  const int result = queue.put(packet, interleave);
  (void)monitor.tell_due();
  return result;
}

void OutputThread::end() {
  if (!thread.joinable()) return;
  queue.end();
  {
    const std::lock_guard<std::mutex> lock(wake_mutex);
    ended = true;
  }
  wake.notify_all();
}

void OutputThread::join() {
  if (!thread.joinable()) return;
  end();
  thread.join();
}

void OutputThread::fill(ZevaOutputState& state) const {
  monitor.fill(state);
  const PacketQueue::Backlog backlog = queue.backlog();
  state.queued_packets = backlog.packets;
  state.queued_us = backlog.us;
  state.queued_bytes = backlog.bytes;
  state.synced_us = output.synced_us();
}

// ---- the writer thread

void OutputThread::run() {
  const int result = write_until_end();
  if (result < 0) output.is_at_guard() ? end_early() : fail(result);
  if (result >= 0 || policy.trailer_after_error || output.can_be_finished()) finish();
  monitor.set_disk_free(output.disk_free_bytes());
  if (!failed) monitor.enter(kZevaOutputFinished);
  if (!failed && finished_early) output.tell_finished_early();
  (void)monitor.tell_due();
  listener.on_finished();
}

// Until the end of the packets; negative when the output has failed for good.
int OutputThread::write_until_end() {
  int result = opens_itself() ? connect(0) : 0;
  while (result >= 0) {
    result = write_queued();
    if (result >= 0 || !policy.reconnects() || ended) return result;
    queue.disconnect();
    result = connect(result);
    if (result >= 0) monitor.count_reconnect();
  }
  return result;
}

// Tries until there is a connection; `lost` is the error that ended the one before, 0 before the
// first. Negative when there will be none: the policy gives up, or the recording has ended.
int OutputThread::connect(int lost) {
  const int32_t phase = lost < 0 ? kZevaOutputReconnecting : kZevaOutputOpening;
  const int64_t begin = steady_us();
  Waits waits(policy);
  int result = lost < 0 ? lost : open_again();
  while (result < 0) {
    ZEVA_LOG(kLogError, "'%s': (%d) %s", output.url().c_str(), result, av_error_text(result));
    monitor.note_error(result);
    monitor.enter(phase, av_error_text(result));
    const int64_t wait_us = waits.next();
    const bool out_of_time =
        policy.reconnect_total_us >= 0 && steady_us() - begin + wait_us > policy.reconnect_total_us;
    if (!policy.reconnects() || out_of_time || !wait_before_next(wait_us)) return result;
    result = open_again();
  }
  begin_session();
  return 0;
}

void OutputThread::begin_session() {
  const bool anew = queue.connect();
  std::vector<SessionTimes::Stream> streams;
  for (const OutputQueue::Stream& stream : queue.all_streams()) {
    streams.push_back({stream.time_base, stream.pictures});
  }
  times.begin(std::move(streams), anew);
}

int OutputThread::open_again() {
  const int result = output.is_fresh() ? 0 : output.renew();
  return result < 0 ? result : output.open();
}

// False when the recording ended meanwhile.
bool OutputThread::wait_before_next(int64_t wait_us) {
  const int64_t until = steady_us() + wait_us;
  while (!ended) {
    const int told_ms = monitor.tell_due();
    int64_t left_us = until - steady_us();
    if (left_us <= 0) return true;
    if (told_ms >= 0) left_us = std::min<int64_t>(left_us, int64_t{told_ms} * 1000);
    std::unique_lock<std::mutex> lock(wake_mutex);
    wake.wait_for(lock, std::chrono::microseconds(left_us), [this] { return ended.load(); });
  }
  return false;
}

// Until the end of the packets; negative is a write error. When no packet comes for a while, none
// is held back any longer for a stream that may have fallen silent.
int OutputThread::write_queued() {
  bool holding = false;
  while (true) {
    AVPacket packet;
    const int watched = watch_disk();
    if (watched < 0) return watched;
    const int got = queue.get_within(&packet, wait_ms(holding));
    if (got < 0) return queue.has_overflowed() ? AVERROR(ENOBUFS) : 0;
    if (got == 0) {
      if (!holding) continue;
      holding = false;
      const int result = output.write_held();
      if (result < 0) return result;
      continue;
    }
    if (PacketQueue::is_tailer(packet)) {
      listener.on_end_of_packets(written);
      return output.write_held();
    }
    const int result = write(packet);
    if (result < 0) return result;
    holding = true;
  }
}

int OutputThread::watch_disk() {
  const int result = output.watch_disk();
  monitor.set_disk_free(output.disk_free_bytes());
  return result;
}

// For the next packet, -1 for ever: something else may be to do before it comes.
int OutputThread::wait_ms(bool holding) {
  int shortest = monitor.tell_due();
  const auto at_most = [&](int ms) { shortest = shortest < 0 ? ms : std::min(shortest, ms); };
  if (holding) at_most(kLongestHoldMs);
  if (output.is_watched()) at_most(kDiskPeriodMs);
  return shortest;
}

int OutputThread::write(AVPacket& packet) {
  const OutputQueue::Stream& stream = *queue.stream(packet.stream_index);
  const int64_t end_us =
      av_rescale_q(packet.pts + packet.duration, stream.time_base, kMicroseconds);
  const int64_t bytes = packet.size;
  if (!times.fit(packet)) {
    monitor.count_dropped(stream.pictures);
    av_packet_unref(&packet);
    return 0;
  }
  av_packet_rescale_ts(&packet, stream.time_base,
                       output.context()->streams[packet.stream_index]->time_base);
  const int result = output.write(&packet);
  if (result < 0) {
    monitor.count_dropped(stream.pictures);
    return result;
  }
  monitor.count_written(bytes, end_us);
  ++written;
  return 0;
}

void OutputThread::finish() {
  listener.on_trailer(written);
  int result = output.write_trailer();
  // Others may have the file while the recording goes on without it.
  if (!takes_packets() && !policy.live) result = std::min(result, output.close_files());
  if (result >= 0) return;
  monitor.note_error(result);
  // The host knows already, unless it was told that the trailer would fit.
  if (failed.exchange(true) && !output.is_full()) return;
  if (policy.optional) {
    monitor.enter(kZevaOutputGivenUp, av_error_text(result));
    return;
  }
  monitor.enter_untold(kZevaOutputGivenUp);
  listener.on_trailer_error(result);
}

void OutputThread::end_early() {
  finished_early = true;
  queue.abort();
}

void OutputThread::fail(int code) {
  queue.abort();
  failed = true;
  monitor.note_error(code);
  if (policy.optional) {
    monitor.enter(kZevaOutputGivenUp, av_error_text(code) + output.fate());
    return;
  }
  monitor.enter_untold(kZevaOutputGivenUp);
  listener.on_write_error(code);
}

}  // namespace zeva
