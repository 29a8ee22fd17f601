#include "context_copy.h"

#include <algorithm>

namespace zeva {
namespace {

bool copy_side_data(const AVStream& source, AVStream* copy) {
  for (int i = 0; i < source.nb_side_data; ++i) {
    const AVPacketSideData& data = source.side_data[i];
    uint8_t* const bytes = av_stream_new_side_data(copy, data.type, data.size);
    if (bytes == nullptr) return false;
    std::copy_n(data.data, data.size, bytes);
  }
  return true;
}

bool copy_stream(const AVStream& source, AVFormatContext* context) {
  AVStream* const copy = avformat_new_stream(context, nullptr);
  if (copy == nullptr || avcodec_parameters_copy(copy->codecpar, source.codecpar) < 0) return false;
  copy->time_base = source.time_base;
  copy->avg_frame_rate = source.avg_frame_rate;
  copy->sample_aspect_ratio = source.sample_aspect_ratio;
  copy->disposition = source.disposition;
  return av_dict_copy(&copy->metadata, source.metadata, 0) >= 0 && copy_side_data(source, copy);
}

}  // namespace

FormatContextPtr copy_context(const AVFormatContext& source) {
  AVFormatContext* made = nullptr;
  (void)avformat_alloc_output_context2(&made, source.oformat, nullptr, source.url);
  FormatContextPtr copy(made);
  if (copy == nullptr || av_dict_copy(&copy->metadata, source.metadata, 0) < 0) return nullptr;
  for (unsigned i = 0; i < source.nb_streams; ++i) {
    if (!copy_stream(*source.streams[i], copy.get())) return nullptr;
  }
  return copy;
}

}  // namespace zeva
