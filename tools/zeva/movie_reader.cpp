#include "movie_reader.h"

#include <filesystem>
#include <system_error>

namespace zeva_tool {
namespace {

// How far one stream is read ahead while the other has nothing: a stream may end early, or the file
// may be badly interleaved.
constexpr size_t kReadAheadBytes = 32u << 20;

}  // namespace

Status MovieReader::open(const std::string& path, bool want_video, bool want_audio) {
  std::error_code error;
  if (!std::filesystem::exists(std::filesystem::u8path(path), error)) {
    return Status("the input " + path + " does not exist");
  }
  AVFormatContext* context = nullptr;
  int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
  if (result < 0) return Status("the input " + path + " cannot be opened: " + av_text(result));
  input.reset(context);
  result = avformat_find_stream_info(context, nullptr);
  if (result < 0) return Status("the input " + path + " cannot be read: " + av_text(result));
  Status status;
  if (want_video) status = open_stream(AVMEDIA_TYPE_VIDEO, video, video_stream_info);
  if (status.ok() && want_audio) status = open_stream(AVMEDIA_TYPE_AUDIO, audio, audio_stream_info);
  return status.ok() ? status : Status("the input " + path + ": " + status.sentence());
}

Status MovieReader::open_stream(AVMediaType type, std::unique_ptr<StreamDecoder>& decoder,
                                const AVStream*& stream) {
  int index = av_find_best_stream(input.get(), type, -1, -1, nullptr, 0);
  if (index < 0) return {};
  AVStream* found = input->streams[index];
  if (found->disposition & AV_DISPOSITION_ATTACHED_PIC) return {};  // a cover is no movie
  decoder = std::make_unique<StreamDecoder>();
  stream = found;
  return decoder->open(*found);
}

const AVFrame* MovieReader::first_picture() {
  while (video && !video->advance()) {
    if (video->finished() || waiting_bytes() > kReadAheadBytes) return nullptr;
    if (!read_packet()) end_input();
  }
  return video ? &video->frame() : nullptr;
}

MovieReader::Next MovieReader::next() {
  if (chosen) chosen->release();
  bool have_video = false;
  bool have_audio = false;
  while (true) {
    have_video = video && video->advance();
    have_audio = audio && audio->advance();
    bool wait_video = video && !have_video && !video->finished();
    bool wait_audio = audio && !have_audio && !audio->finished();
    if (!wait_video && !wait_audio) break;
    if ((have_video || have_audio) && waiting_bytes() > kReadAheadBytes) break;
    if (!read_packet()) end_input();
  }
  if (!have_video && !have_audio) {
    chosen = nullptr;
    return Next::kEnd;
  }
  bool take_video = have_video && (!have_audio || video->time_us() <= audio->time_us());
  chosen = take_video ? video.get() : audio.get();
  return take_video ? Next::kVideo : Next::kAudio;
}

size_t MovieReader::waiting_bytes() const {
  return (video ? video->waiting_bytes() : 0) + (audio ? audio->waiting_bytes() : 0);
}

bool MovieReader::read_packet() {
  if (input_ended) return false;
  PacketPtr packet(av_packet_alloc());
  int result = av_read_frame(input.get(), packet.get());
  if (result < 0) {
    if (result != AVERROR_EOF) read_error_text = av_text(result);
    return false;
  }
  if (video && packet->stream_index == video_stream_info->index) {
    video->push(std::move(packet));
  } else if (audio && packet->stream_index == audio_stream_info->index) {
    audio->push(std::move(packet));
  }
  return true;
}

void MovieReader::end_input() {
  input_ended = true;
  if (video) video->end_input();
  if (audio) audio->end_input();
}

int64_t MovieReader::damaged_count() const {
  return (video ? video->damaged_count() : 0) + (audio ? audio->damaged_count() : 0);
}

}  // namespace zeva_tool
