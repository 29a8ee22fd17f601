#include "writer_base.h"

#include <string>

#include "av_error.h"
#include "logger.h"
#include "output_url.h"

namespace zeva {
namespace {

void set_metadata(AVDictionary** metadata, const std::string& meta_info) {
  for (const auto& [key, value] : parse_metadata(meta_info)) {
    err_print(stderr, "%s ---> %s\n", key.c_str(), value.c_str());
    av_dict_set(metadata, key.c_str(), value.c_str(), 0);
  }
}

}  // namespace

void BaseWriter::create_other_writers(const char* const* /*urls*/) {}

bool BaseWriter::start() { return false; }

void BaseWriter::stop() {}

void BaseWriter::request_exit() {
  const std::lock_guard<std::mutex> lock(chain_mutex);
  for (BaseWriter* w = this; w != nullptr; w = w->next.get()) w->io.exit();
}

void BaseWriter::set_timeout(int timeout_sec) {
  for (BaseWriter* w = this; w != nullptr; w = w->next.get()) w->io.set_timeout(timeout_sec);
}

WriterResult BaseWriter::open(AVFormatContext* main_context, const char* meta_info,
                              const char* /*index_path*/) {
  context = main_context;
  return write_header(meta_info);
}

WriterResult BaseWriter::write_header(const char* meta_info) {
  if (meta_info != nullptr && meta_info[0] != '\0') {
    err_print(stderr, "== MetaInfo: %s\n\n", meta_info);
    set_metadata(&context->metadata, meta_info);
  }
  // The same dictionary serves as the options: pairs that name a muxer option act as one.
  const int result = avformat_write_header(context, &context->metadata);
  if (result < 0) return WriterResult::failure(result, av_error_text(result));
  return {1, "", false};
}

AVStream* BaseWriter::rescale_to_stream(AVRational time_base, AVPacket* packet) const {
  AVStream* stream = context->streams[packet->stream_index];
  av_packet_rescale_ts(packet, time_base, stream->time_base);
  return stream;
}

int BaseWriter::write_packet(AVRational time_base, AVPacket* packet, bool /*interleave*/) {
  if (packet == nullptr) return 0;
  const AVStream* stream = rescale_to_stream(time_base, packet);
  movie_time = static_cast<double>(packet->pts) * av_q2d(stream->time_base);
  return av_interleaved_write_frame(context, packet);
}

int BaseWriter::write_trailer() { return av_write_trailer(context); }

}  // namespace zeva
