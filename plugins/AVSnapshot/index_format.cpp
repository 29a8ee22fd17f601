#include "index_format.h"

#include <charconv>
#include <vector>

#include "display_rotation.h"

namespace zeva {
namespace {

// Members are written as they are: no codec name, format name or base64 text needs escaping.
class JsonLine {
 public:
  void add(const char* key, const char* value) {
    begin(key);
    text.append("\"").append(value != nullptr ? value : "").append("\"");
  }
  void add(const char* key, int64_t value) {
    begin(key);
    text += std::to_string(value);
  }
  std::string finish() { return "{" + text + "}"; }

 private:
  void begin(const char* key) {
    if (!text.empty()) text += ",";
    text.append("\"").append(key).append("\":");
  }

  std::string text;
};

std::string base64(const uint8_t* data, int size_bytes) {
  if (data == nullptr || size_bytes <= 0) return {};
  std::vector<char> text(AV_BASE64_SIZE(static_cast<size_t>(size_bytes)));
  const char* encoded =
      av_base64_encode(text.data(), static_cast<int>(text.size()), data, size_bytes);
  return encoded != nullptr ? encoded : "";
}

void add_common_tail(JsonLine& line, const AVStream& stream) {
  line.add("tb.num", stream.time_base.num);
  line.add("tb.den", stream.time_base.den);
  line.add("ev", base64(stream.codecpar->extradata, stream.codecpar->extradata_size).c_str());
}

char* put(char* p, std::optional<int64_t> value, char separator) {
  if (value) p = std::to_chars(p, p + 20, *value).ptr;
  *p++ = separator;
  return p;
}

char* put_or_empty(char* p, int64_t value, char separator) {
  return put(p, value != 0 ? std::optional(value) : std::nullopt, separator);
}

}  // namespace

std::string index_header_line() {
  return "## version=" + std::to_string(kIndexVersion) + ", ZEVALib recording index\n";
}

std::string index_stream_line(const AVStream& stream) {
  const AVCodecParameters& par = *stream.codecpar;
  JsonLine line;
  if (par.codec_type == AVMEDIA_TYPE_VIDEO) {
    line.add("type", "video");
    line.add("index", stream.index);
    line.add("codec", avcodec_get_name(par.codec_id));
    line.add("format", av_get_pix_fmt_name(static_cast<AVPixelFormat>(par.format)));
    line.add("h", par.height);
    line.add("w", par.width);
  } else if (par.codec_type == AVMEDIA_TYPE_AUDIO) {
    line.add("type", "audio");
    line.add("index", stream.index);
    line.add("codec", avcodec_get_name(par.codec_id));
    line.add("format", av_get_sample_fmt_name(static_cast<AVSampleFormat>(par.format)));
    line.add("channels", par.channels);
    line.add("frame_size", par.frame_size);
    line.add("sample_rate", par.sample_rate);
  } else {
    return {};
  }
  add_common_tail(line, stream);
  if (const int degrees = display_rotation(stream)) line.add("rotate", degrees);
  return line.finish();
}

int format_index_record(const IndexRecord& record, char* out) {
  char* p = out;
  p = put_or_empty(p, record.stream_index, ',');
  p = put_or_empty(p, record.position, ',');
  p = put_or_empty(p, record.size, ',');
  p = put_or_empty(p, record.pts_delta, ',');
  p = put(p, record.dts_delta, ',');
  p = put_or_empty(p, record.duration, ',');
  p = put_or_empty(p, record.key, ';');
  *p = '\0';
  return static_cast<int>(p - out);
}

}  // namespace zeva
