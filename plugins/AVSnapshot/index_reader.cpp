#include "index_reader.h"

#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

namespace zeva {
namespace {

using Json = nlohmann::json;

// A walk over the fields of one record.
class Fields {
 public:
  explicit Fields(std::string_view text) : p(text.data()), end(p + text.size()) {}

  // Version 2: empty is 0; behind the number whatever stands before the separator is skipped.
  template <typename Int>
  bool read(Int& value, char separator) {
    value = 0;
    if (at_end()) return false;
    if (*p != separator) number(value);
    while (p < end && *p != separator && *p != ';') ++p;
    return take(separator);
  }

  // Version 2: empty is none.
  bool read(std::optional<int64_t>& value, char separator) {
    value.reset();
    if (at_end()) return false;
    int64_t given = 0;
    if (*p != separator && number(given)) value = given;
    while (p < end && *p != separator && *p != ';') ++p;
    return take(separator);
  }

  // Version 1: a number and its separator, as scanf would take them.
  template <typename Int>
  bool scan(Int& value, char separator) {
    return number(value) && take(separator);
  }

  bool take(char c) {
    if (p == end || *p != c) return false;
    ++p;
    return true;
  }

  bool skip_past(char c) {
    while (p < end && *p != c) ++p;
    return take(c);
  }

  const char* position() const { return p; }

  // Blanks and a plus sign may stand before a number; without one `value` stays.
  template <typename Int>
  bool number(Int& value) {
    const char* digits = p;
    while (digits < end && (*digits == ' ' || *digits == '\t')) ++digits;
    if (digits + 1 < end && *digits == '+' && digits[1] != '-') ++digits;
    const auto [behind, error] = std::from_chars(digits, end, value);
    if (error == std::errc::invalid_argument) return false;
    if (error == std::errc::result_out_of_range) {
      using Limits = std::numeric_limits<Int>;
      value = *digits == '-' ? Limits::min() : Limits::max();
    }
    p = behind;
    return true;
  }

 private:
  bool at_end() const { return p == end || *p == '\0' || *p == '\r' || *p == '\n'; }

  const char* p;
  const char* end;
};

bool read_version_2(Fields& fields, IndexRecord& r) {
  return fields.read(r.stream_index, ',') && fields.read(r.position, ',') &&
         fields.read(r.size, ',') && fields.read(r.pts_delta, ',') &&
         fields.read(r.dts_delta, ',') && fields.read(r.duration, ',') && fields.read(r.key, ';');
}

// All fields are there; a dts delta of 0 is none.
bool read_version_1(Fields& fields, IndexRecord& r) {
  if (!fields.number(r.stream_index)) return false;
  int64_t dts_delta = 0;
  const bool whole = fields.take(',') && fields.scan(r.position, ',') && fields.scan(r.size, ',') &&
                     fields.scan(r.pts_delta, ',') && fields.scan(dts_delta, ',') &&
                     fields.scan(r.duration, ',') && fields.scan(r.key, ';');
  if (dts_delta != 0) r.dts_delta = dts_delta;
  return whole || fields.skip_past(';');
}

std::string text_member(const Json& line, const char* key) {
  const auto found = line.find(key);
  return found != line.end() && found->is_string() ? found->get<std::string>() : std::string{};
}

int number_member(const Json& line, const char* key) {
  const auto found = line.find(key);
  if (found == line.end() || !found->is_number_integer()) return 0;
  // Beyond 64 bits the JSON reader makes it a floating-point number, which is none of ours.
  if (found->is_number_unsigned() && found->get<uint64_t>() > std::numeric_limits<int>::max()) {
    return 0;
  }
  const auto value = found->get<int64_t>();
  return value >= std::numeric_limits<int>::min() ? static_cast<int>(value) : 0;
}

template <typename Description>
void read_common_members(const Json& line, Description& d) {
  d.index = number_member(line, "index");
  d.codec = text_member(line, "codec");
  d.format = text_member(line, "format");
  d.time_base = {number_member(line, "tb.num"), number_member(line, "tb.den")};
  d.ev = text_member(line, "ev");
}

// Leaves `version` as it is when the line does not name one.
void read_version(std::string_view line, int& version) {
  constexpr std::string_view kKey = "version=";
  const size_t found = line.find(kKey);
  if (found != std::string_view::npos) Fields(line.substr(found + kKey.size())).number(version);
}

}  // namespace

bool read_stream_line(std::string_view text, IndexStreams& streams) {
  if (text.empty() || text.front() != '{') return false;
  const Json line = Json::parse(text, nullptr, false);
  if (line.is_discarded()) return false;
  if (streams.list.size() >= kIndexMaxStreams) return true;
  const std::string type = text_member(line, "type");
  if (type == "video") {
    read_common_members(line, streams.video);
    streams.video.width = number_member(line, "w");
    streams.video.height = number_member(line, "h");
    streams.video.rotation_deg = number_member(line, "rotate");
    streams.list.push_back(AVMEDIA_TYPE_VIDEO);
  } else if (type == "audio") {
    read_common_members(line, streams.audio);
    streams.audio.channels = number_member(line, "channels");
    streams.audio.sample_rate = number_member(line, "sample_rate");
    streams.audio.frame_size = number_member(line, "frame_size");
    streams.list.push_back(AVMEDIA_TYPE_AUDIO);
  }
  return true;
}

bool read_index_record(std::string_view& rest, int version, IndexRecord& record) {
  record = {};
  Fields fields(rest);
  const bool complete = version == 2   ? read_version_2(fields, record)
                        : version == 1 ? read_version_1(fields, record)
                                       : false;
  if (complete) rest.remove_prefix(static_cast<size_t>(fields.position() - rest.data()));
  return complete;
}

bool IndexReader::open(const std::string& path) {
  *this = IndexReader();
  file.reset(file_size(path) >= 0 ? open_file(path.c_str(), "rb") : nullptr);
  if (file == nullptr) return false;
  read_head();
  decoder = RecordDecoder(described.audio.index, described.audio.frame_size);
  return true;
}

// The line behind the head is known only once it is read, so it waits in the buffer.
void IndexReader::read_head() {
  while (read_line()) {
    if (!text.empty() && text.front() == '#') {
      if (line_count == 1) read_version(text, index_version);
    } else if (!read_stream_line(text, described)) {
      is_first_record_line_read = true;
      return;
    }
  }
}

// Bytes that are zero were never written. Without the records in between, nothing behind them can
// be placed or timed.
bool IndexReader::next_line() {
  const bool gap = holds_nul && !is_first_record_line_read;
  const bool more = is_first_record_line_read || (!gap && read_line());
  is_first_record_line_read = false;
  unread = text;
  return more;
}

bool IndexReader::next_packet(IndexedPacket& packet) {
  IndexRecord record;
  if (!read_index_record(unread, index_version, record)) return false;
  packet = decoder.decode(record);
  return true;
}

bool IndexReader::read_line() {
  text = {};
  if (file == nullptr) return false;
  line_begin = line_end;
  if (fgets(buffer.data(), static_cast<int>(buffer.size()), file.get()) == nullptr) return false;
  line_end = tell_file(file.get());
  ++line_count;
  text = buffer.data();
  holds_nul = line_end - line_begin != static_cast<int64_t>(text.size());
  has_line_end = feof(file.get()) == 0;
  text = text.substr(0, text.find_last_not_of("\r\n") + 1);
  buffer[text.size()] = '\0';
  return true;
}

}  // namespace zeva
