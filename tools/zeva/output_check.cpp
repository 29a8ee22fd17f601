#include "output_check.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "av.h"
#include "output_url.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

bool container_is_readable(const std::string& path) {
  const AVOutputFormat* format = main_container(path);
  return format && av_find_input_format(format->name) != nullptr;
}

Status open_movie(const std::string& path, InputPtr& movie) {
  AVFormatContext* context = nullptr;
  std::string url = "file:" + path;
  int result = avformat_open_input(&context, url.c_str(), nullptr, nullptr);
  if (result < 0) return Status("it cannot be opened as a movie: " + av_text(result));
  movie.reset(context);
  result = avformat_find_stream_info(context, nullptr);
  return result < 0 ? Status("its streams cannot be read: " + av_text(result)) : Status();
}

// In microseconds from the movie's beginning. An MP4's own duration is that of its longest stream,
// also when that begins late.
int64_t end_of(const AVFormatContext& movie) {
  int64_t end_us = movie.duration != AV_NOPTS_VALUE ? movie.duration : 0;
  for (unsigned i = 0; i < movie.nb_streams; ++i) {
    const AVStream& stream = *movie.streams[i];
    if (stream.start_time == AV_NOPTS_VALUE || stream.duration <= 0) continue;
    int64_t stream_end_us =
        av_rescale_q(stream.start_time + stream.duration, stream.time_base, kMicroseconds);
    int64_t begin_us = movie.start_time != AV_NOPTS_VALUE ? movie.start_time : 0;
    end_us = std::max(end_us, stream_end_us - begin_us);
  }
  return end_us;
}

Status check_exists(const std::string& path) {
  std::error_code error;
  if (!fs::exists(fs::u8path(path), error)) return Status("the file does not exist");
  uintmax_t size = fs::file_size(fs::u8path(path), error);
  return !error && size == 0 ? Status("the file is empty") : Status();
}

}  // namespace

Status check_movie_file(const std::string& path) {
  Status status = check_exists(path);
  InputPtr movie;
  if (status.ok() && container_is_readable(path)) status = open_movie(path, movie);
  return status;
}

Status check_movie_length(const std::string& path, int64_t length_us, int64_t tolerance_us) {
  Status status = check_exists(path);
  if (!status.ok() || !container_is_readable(path)) return status;
  InputPtr movie;
  status = open_movie(path, movie);
  if (!status.ok()) return status;
  if (movie->iformat->flags & AVFMT_NOTIMESTAMPS) return {};  // such a file has no length
  bool shorter = end_of(*movie) < length_us - tolerance_us;
  return shorter ? Status("it does not reach the end of the recording") : Status();
}

}  // namespace zeva_tool
