#include "packet_reader.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace zeva_tool {
namespace {

constexpr size_t kReadAheadBytes = 64u << 20;
constexpr int64_t kRawReadBytes = 32768;  // as much as FFmpeg reads of a file at once

}  // namespace

Status PacketReader::open(const std::string& argument, const std::string& path,
                          const char* format) {
  std::string name = argument + " " + path;
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::u8path(path), error)) {
    return Status(name + " does not exist");
  }
  AVFormatContext* context = nullptr;
  AVInputFormat* forced = format ? av_find_input_format(format) : nullptr;
  int result = avformat_open_input(&context, ("file:" + path).c_str(), forced, nullptr);
  if (result < 0) return Status(name + " cannot be opened: " + av_text(result));
  input.reset(context);
  // Bare H.264 is read by 1 KiB otherwise, a buffer for each; other formats do not know it.
  av_opt_set_int(context, "raw_packet_size", kRawReadBytes, AV_OPT_SEARCH_CHILDREN);
  result = avformat_find_stream_info(context, nullptr);
  return result < 0 ? Status(name + " cannot be read: " + av_text(result)) : Status();
}

const AVStream* PacketReader::select(AVMediaType type) {
  int index = av_find_best_stream(input.get(), type, -1, -1, nullptr, 0);
  if (index < 0) return nullptr;
  const AVStream* stream = input->streams[index];
  if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) return nullptr;  // a cover is no movie
  lanes[lane_count++].stream = stream;
  return stream;
}

PacketReader::Lane& PacketReader::lane_of(const AVStream& stream) {
  return lanes[lanes[0].stream == &stream ? 0 : 1];
}

const AVPacket* PacketReader::front(const AVStream& stream) {
  Lane& lane = lane_of(stream);
  while (lane.waiting.empty() && waiting_bytes < kReadAheadBytes && read_packet()) {
  }
  return lane.waiting.empty() ? nullptr : lane.waiting.front().get();
}

void PacketReader::pop(const AVStream& stream) {
  Lane& lane = lane_of(stream);
  waiting_bytes -= static_cast<size_t>(lane.waiting.front()->size);
  lane.waiting.pop_front();
}

bool PacketReader::read_packet() {
  if (file_ended) return false;
  PacketPtr packet(av_packet_alloc());
  int result = av_read_frame(input.get(), packet.get());
  if (result < 0) {
    if (result != AVERROR_EOF) read_error_text = av_text(result);
    file_ended = true;
    return false;
  }
  for (size_t i = 0; i < lane_count; ++i) {
    if (packet->stream_index != lanes[i].stream->index) continue;
    waiting_bytes += static_cast<size_t>(packet->size);
    lanes[i].waiting.push_back(std::move(packet));
    break;
  }
  return true;
}

}  // namespace zeva_tool
