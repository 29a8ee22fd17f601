#include "output_thread.h"

#include <system_error>
#include <utility>

#include "av_error.h"

namespace zeva {

OutputThread::OutputThread(std::string url, const OutputPolicy& policy, OutputListener& listener,
                           MovieOutput::Report report)
    : output(std::move(url), std::move(report)), policy(policy), listener(listener) {}

Status OutputThread::start() try {
  thread = std::thread(&OutputThread::run, this);
  return Status::success();
} catch (const std::system_error& e) {
  return Status::failure(AVERROR(EAGAIN), "no thread to write '" + output.url() + "': " + e.what());
}

int OutputThread::put(const AVPacket& packet, uint32_t max_packets) {
  const PacketPtr reference(av_packet_clone(&packet));
  return reference != nullptr ? queue.put_bounded(reference.get(), max_packets, true) : -1;
}

void OutputThread::end() {
  if (thread.joinable()) queue.put(PacketQueue::tailer());
}

void OutputThread::join() {
  if (!thread.joinable()) return;
  end();
  thread.join();
}

// ---- the writer thread

void OutputThread::run() {
  const int result = write_queued();
  if (result < 0) fail(result);
  if (result >= 0 || policy.trailer_after_error || output.can_be_finished()) {
    listener.on_trailer(written);
    const int trailer = output.write_trailer();
    if (trailer < 0) {
      failed = true;
      listener.on_trailer_error(trailer);
    }
  }
  listener.on_finished();
}

// Until the end of the packets; negative is a write error. When no packet comes for a while, none
// is held back any longer for a stream that may have fallen silent.
int OutputThread::write_queued() {
  bool holding = false;
  while (true) {
    AVPacket packet;
    const int got = queue.get_within(&packet, holding ? kLongestHoldMs : PacketQueue::kForever);
    if (got < 0) return 0;
    if (got == 0) {
      holding = false;
      const int result = output.write_held();
      if (result < 0) return result;
      continue;
    }
    if (PacketQueue::is_tailer(packet)) {
      listener.on_end_of_packets(written);
      return output.write_held();
    }
    const int result = output.write(&packet);
    if (result < 0) return result;
    holding = true;
    ++written;
  }
}

void OutputThread::fail(int code) {
  queue.abort();
  failed = true;
  listener.on_write_error(code);
}

}  // namespace zeva
