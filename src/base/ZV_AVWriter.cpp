#include "ZV_AVWriter.h"

#include "av_error.h"
#include "logger.h"
#include "output_url.h"
#include "writer_clone.h"

namespace ZV {
namespace {

using zeva::kLogDebug;
using zeva::kLogError;
using zeva::kLogInfo;
using zeva::PacketQueue;
using zeva::WriterResult;

constexpr int64_t kNoTime = -999999;

// Each further output may lag a little more than the one before it.
constexpr uint32_t kMorePackets = 6;
constexpr uint32_t kMoreAllowance = 3;

// What must grow from packet to packet. Where the codec reorders pictures, presentation times go
// back and forth by nature, and only the decoding times tell a packet that is out of order.
int64_t order_time(const AVStream& stream, const AVPacket& packet) {
  return stream.codecpar->video_delay > 0 ? packet.dts : packet.pts;
}

}  // namespace

ZV_AVWriter::ZV_AVWriter(uint32_t max_packets, uint32_t interleave_allowance, const char* url)
    : maxNpkt(max_packets),
      interleave_allowance(interleave_allowance),
      url(url != nullptr ? url : "") {
  last_times.fill(kNoTime);
}

ZV_AVWriter::~ZV_AVWriter() { ZV_AVWriter::stop(); }

void ZV_AVWriter::create_other_writers(const char* const* urls) {
  ZEVA_LOG(kLogDebug, "@@------------------ create other writers ---------");
  uint32_t packets = maxNpkt;
  uint32_t allowance = interleave_allowance;
  ZV_AVWriter* tail = this;
  while (tail->next_writer() != nullptr) tail = tail->next_writer();
  for (; *urls != nullptr; ++urls) {
    ZEVA_LOG(kLogDebug, "other_url: %s", *urls);
    packets += kMorePackets;
    allowance += kMoreAllowance;
    auto writer = std::make_unique<ZV_AVWriter>(packets, allowance, *urls);
    writer->previous = tail;
    writer->error_callback = error_callback;
    writer->error_user = error_user;
    const std::lock_guard<std::mutex> lock(chain_mutex);
    if (exited()) writer->io.exit();
    tail->next = std::move(writer);
    tail = tail->next_writer();
  }
  ZEVA_LOG(kLogDebug, "@@------------------ create other writers -------OK");
}

WriterResult ZV_AVWriter::open(AVFormatContext* main_context, const char* meta_info,
                               const char* index_path) {
  if (exited()) return WriterResult::failure(-20, "main writer already exited");
  io.begin_operation();
  if (context == nullptr) {
    if (is_main()) {
      context = main_context;
    } else if (WriterResult made = make_own_context(main_context); made.failed) {
      return made;
    }
  }
  if (index_path != nullptr && index_path[0] != '\0' &&
      zeva::ends_with_nocase(url.c_str(), ".mp4")) {
    start_index(index_path);
  }
  WriterResult result = write_header(meta_info);
  if (result.failed) return result;
  io.opened();
  if (next) {
    result = next->open(main_context, meta_info, index_path);
    if (result.failed) return result;
  }
  if (exited()) return WriterResult::failure(-21, "main writer already exited 2");
  return result;
}

WriterResult ZV_AVWriter::make_own_context(const AVFormatContext* main_context) {
  zeva::ClonedContext clone = zeva::clone_output_context(main_context, url.c_str(), io.callback());
  own_context = std::move(clone.context);
  context = own_context.get();
  return clone.result;
}

void ZV_AVWriter::start_index(const char* index_path) {
  auto started = std::make_unique<zeva::Snapshot>();
  if (!started->open(index_path)) {
    ZEVA_LOG(kLogError, "启动快照失败: %s", index_path);
    return;
  }
  const bool attached = started->attach(context);
  ZEVA_LOG(kLogError, "启动快照 (%s): %s", attached ? "success" : "failed", index_path);
  snapshot = std::move(started);
}

bool ZV_AVWriter::start() {
  if (exited()) {
    ZEVA_LOG(kLogError, "main writer already exited ...");
    return false;
  }
  if (context != nullptr) thread = std::thread(&ZV_AVWriter::write_loop, this);
  return next ? next->start() : true;
}

int ZV_AVWriter::write_packet(AVRational time_base, AVPacket* packet, bool interleave) {
  if (packet == nullptr) return 0;
  int result = -1;
  if (context != nullptr) {
    if (packet->stream_index < 0 || packet->stream_index >= static_cast<int>(context->nb_streams) ||
        packet->stream_index >= static_cast<int>(last_times.size())) {
      return -1;
    }
    const AVStream& stream = *rescale_to_stream(time_base, packet);
    time_base = stream.time_base;
    if (!grows(stream, *packet)) return 0;
    movie_time = static_cast<double>(packet->pts) * av_q2d(stream.time_base);
    result = enqueue(*packet, interleave);
  }
  // Also when this output has failed: the others go on.
  if (next) next->write_packet(time_base, packet, interleave);
  return result;
}

bool ZV_AVWriter::grows(const AVStream& stream, const AVPacket& packet) {
  int64_t& last = last_times[static_cast<size_t>(packet.stream_index)];
  const int64_t time = order_time(stream, packet);
  if (time <= last) {
    ZEVA_LOG(kLogError, "*** ERROR:[streamIdx=%d] pkt->pts=%lld < last_pts(%lld), drop current",
             packet.stream_index, static_cast<long long>(time), static_cast<long long>(last));
    return false;
  }
  last = time;
  return true;
}

int ZV_AVWriter::enqueue(const AVPacket& packet, bool interleave) {
  const zeva::PacketPtr clone(av_packet_clone(&packet));
  if (!clone) return -1;
  const uint32_t limit = maxNpkt + (interleave ? interleave_allowance : 0);
  return queue.put_bounded(clone.get(), limit, true);
}

// ---- the writer thread

void ZV_AVWriter::write_loop() {
  int64_t written = 0;
  int result = write_queued(&written);
  if (result >= 0) {
    ZEVA_LOG(kLogError, "[writer](%s): n=%d (---write-tailer---)", is_main() ? "main" : "-",
             static_cast<int>(written));
    io.begin_operation();
    result = io.result_of_operation(av_write_trailer(context));
    if (result >= 0) {
      trailer_written = true;
      return;
    }
    ZEVA_LOG(kLogError, "*** write tailer pkt failed...");
  }
  report_write_error(result);
}

// Writes packets until the tailer came or the queue was aborted; negative is a write error.
int ZV_AVWriter::write_queued(int64_t* written) {
  while (true) {
    AVPacket packet;
    if (queue.get(&packet, true) < 0) return 0;
    io.begin_operation();
    if (PacketQueue::is_tailer(packet)) {
      ZEVA_LOG(kLogError, "[writer](%s): n=%d (---tailer-pkt---)", is_main() ? "main" : "-",
               static_cast<int>(*written));
      ++*written;
      return io.result_of_operation(av_interleaved_write_frame(context, nullptr));
    }
    const int result = io.result_of_operation(av_interleaved_write_frame(context, &packet));
    if (result < 0) {
      av_packet_unref(&packet);
      return result;
    }
    ++*written;
  }
}

void ZV_AVWriter::report_write_error(int code) {
  queue.abort();
  char text[512] = "";
  av_strerror(code, text, sizeof text);
  ZEVA_LOG(kLogError, "[Write Pkt Err] (cache=%d, max=%d), err=%d, errmsg=%s", queue.nb_packets(),
           static_cast<int>(maxNpkt), code, text);
  if (error_callback != nullptr) error_callback(code, text, error_user);
}

// ---- the end

int ZV_AVWriter::write_trailer() {
  const int result = thread.joinable() ? queue.put(PacketQueue::tailer()) : -1;
  if (next) next->write_trailer();
  return result;
}

void ZV_AVWriter::stop() {
  if (is_main()) request_exit();
  write_trailer();
  if (thread.joinable()) thread.join();
  if (!is_main()) close_own_context();
  if (next) next->stop();
  if (snapshot) {
    snapshot.reset();
    ZEVA_LOG(kLogInfo, "delete moov OK");
  }
}

void ZV_AVWriter::close_own_context() {
  if (!own_context) return;
  if ((own_context->oformat->flags & AVFMT_NOFILE) == 0) avio_closep(&own_context->pb);
  own_context.reset();
  context = nullptr;
}

}  // namespace ZV
