#include "writer_output.h"

#include <algorithm>

#include "av_error.h"
#include "logger.h"
#include "output_url.h"

namespace ZV {
namespace {

using zeva::av_error_text;
using zeva::kLogError;
using zeva::MovieOutput;
using zeva::OutputQueue;
using zeva::Status;

constexpr int64_t kNoTime = -999999;

// Places for pictures a second in AVI, at least. An empty one costs 24 bytes.
constexpr int kAviSlots = 100;

enum UrlKind { kMp4, kHls, kLive, kOtherUrl };

UrlKind classify(const char* url) {
  if (zeva::is_live_url(url)) return kLive;
  if (zeva::ends_with_nocase(url, ".mp4")) return kMp4;
  if (zeva::ends_with_nocase(url, ".m3u8")) return kHls;
  return kOtherUrl;
}

// The container goes by the URL. A name that says nothing gets the main output's container when
// that has such a name, too.
AVOutputFormat* further_format(const MovieOutput& main, const char* url) {
  const UrlKind kind = classify(url);
  if (kind == kLive) return zeva::guess_output_format(url);
  const bool same_kind = kind == classify(main.url().c_str());
  AVOutputFormat* const of_main = main.context()->oformat;
  if (kind != kOtherUrl && same_kind) return of_main;
  AVOutputFormat* const guessed = av_guess_format(nullptr, url, nullptr);
  return guessed == nullptr && same_kind ? of_main : guessed;
}

// Where the codec reorders pictures, presentation times go back and forth by nature, and only the
// decoding times tell a packet that is out of order.
int64_t order_time(const OutputQueue::Stream& stream, const AVPacket& packet) {
  return stream.reorders ? packet.dts : packet.pts;
}

}  // namespace

WriterOutput::WriterOutput(ZV_AVWriter& owner, const char* name, const char* url,
                           const zeva::OutputPolicy& policy)
    : thread(url != nullptr ? url : "", policy, *this,
             [&owner](int32_t code, const std::string& text) {
               if (owner.error_callback != nullptr) {
                 owner.error_callback(code, text.c_str(), owner.error_user);
               }
             }),
      owner(owner),
      name(name) {
  last_times.fill(kNoTime);
  thread.queue.on_key_wanted([&owner] {
    if (owner.request_key_picture) owner.request_key_picture();
  });
}

AVOutputFormat* WriterOutput::format(const MovieOutput& main) const {
  const AVFormatContext* const context = thread.output.context();
  return context != nullptr ? context->oformat : further_format(main, thread.output.url().c_str());
}

Status WriterOutput::clone(const MovieOutput& main, const std::vector<const AVStream*>& streams,
                           const std::vector<AVRational>& time_bases) {
  const std::string& url = thread.output.url();
  if (url.empty()) return Status::failure(-1, "clone: invalid paramters");
  const auto failure = [](int code, int result, const std::string& text) {
    if (result < 0) ZEVA_LOG(kLogError, "Error ###: res=%d, %s\n", result, av_error_text(result));
    return Status::failure(code, text);
  };
  AVOutputFormat* const format = further_format(main, url.c_str());
  if (format == nullptr) return failure(-3, 0, "guss format is null");
  int result = thread.output.create(format);
  if (result < 0) {
    return format == main.context()->oformat
               ? failure(-2, result, "Could not create output context: " + url)
               : failure(
                     -4, result,
                     std::string("create context failed: ") + av_error_text(result) + ", " + url);
  }
  for (size_t i = 0; i < time_bases.size(); ++i) {
    AVStream* const stream = thread.output.add_stream();
    result = stream == nullptr ? AVERROR(ENOMEM)
                               : avcodec_parameters_copy(stream->codecpar, streams[i]->codecpar);
    if (result < 0) return failure(-5, result, "failed create output stream: " + url);
    stream->time_base = time_bases[i];
    stream->codecpar->codec_tag = 0;
  }
  return Status::success();
}

Status WriterOutput::open_io() {
  const int result = thread.output.open_io();
  if (result >= 0) return Status::success();
  ZEVA_LOG(kLogError, "Error ###: res=%d, %s\n", result, av_error_text(result));
  return Status::failure(
      -6, std::string("io open failed: ") + av_error_text(result) + ", " + thread.output.url());
}

void WriterOutput::fit_variable_rate(AVRational interval) {
  const AVFormatContext& context = *thread.output.context();
  if (av_match_name(context.oformat->name, "avi") == 0) return;
  const auto parts =
      static_cast<int>(av_rescale_rnd(kAviSlots, interval.num, interval.den, AV_ROUND_UP));
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    stream.time_base = av_div_q(interval, {parts, 1});
  }
}

int WriterOutput::write(AVRational time_base, const AVPacket& packet, bool interleave) {
  const OutputQueue::Stream* stream = thread.queue.stream(packet.stream_index);
  if (stream == nullptr || static_cast<size_t>(packet.stream_index) >= last_times.size()) return -1;
  const zeva::PacketPtr own(av_packet_clone(&packet));
  if (own == nullptr) return -1;
  av_packet_rescale_ts(own.get(), time_base, stream->time_base);
  if (!grows(*stream, *own)) return 0;
  return thread.put(*own, interleave);
}

bool WriterOutput::grows(const OutputQueue::Stream& stream, const AVPacket& packet) {
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

void WriterOutput::close() {
  thread.join();
  const bool told = thread.has_failed();
  const int result = thread.output.close();
  if (result < 0 && !told) on_write_error(result);
}

// ---- the writer thread

void WriterOutput::on_end_of_packets(int64_t written) {
  ZEVA_LOG(kLogError, "[writer](%s): n=%d (---tailer-pkt---)", name, static_cast<int>(written));
}

void WriterOutput::on_trailer(int64_t written) {
  // The end marker counts as one.
  const int counted = static_cast<int>(written) + (thread.has_failed() ? 0 : 1);
  ZEVA_LOG(kLogError, "[writer](%s): n=%d (---write-tailer---)", name, counted);
}

void WriterOutput::on_trailer_error(int code) {
  ZEVA_LOG(kLogError, "*** write tailer pkt failed...");
  on_write_error(code);
}

void WriterOutput::on_write_error(int code) {
  char text[512] = "";
  av_strerror(code, text, sizeof text);
  ZEVA_LOG(kLogError, "[Write Pkt Err] (cache=%d, max=%d), err=%d, errmsg=%s",
           static_cast<int>(thread.queue.backlog().packets),
           static_cast<int>(thread.policy.limits.packets), code, text);
  const MovieOutput& output = thread.output;
  if (thread.policy.required) owner.refuse_frames();
  const std::string told = text + (", writing to '" + output.url() + "'") + output.fate();
  if (owner.error_callback != nullptr) owner.error_callback(code, told.c_str(), owner.error_user);
}

}  // namespace ZV
