#include "index_analysis.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "index_reader.h"
#include "line_reader.h"
#include "stream_tally.h"
#include "text_format.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

constexpr size_t kDamagesKept = 5;

// Goes through an index the way the repair does, so that what it finds is what a repair will find.
class IndexAnalysis {
 public:
  IndexAnalysis(LineReader& the_lines, IndexFacts& the_facts)
      : lines(the_lines), facts(the_facts) {}

  Status run() {
    std::string_view line;
    bool more = read_head(line);
    Status status = check_head();
    if (!status.ok()) return status;
    begin_streams();
    for (; more && !over; more = lines.next(line)) read_records(line);
    for (size_t i = 0; i < tallies.size(); ++i) tallies[i].finish(facts.streams[i]);
    return {};
  }

 private:
  // Leaves the first line behind the head in `line`; false when there is none.
  bool read_head(std::string_view& line) {
    while (lines.next(line)) {
      if (line.front() == '#') {
        if (lines.line_number() == 1) zeva::read_index_version(line, facts.version);
      } else if (!zeva::read_stream_line(line, described)) {
        return true;
      }
    }
    return false;
  }

  Status check_head() const {
    if (lines.line_number() == 0) return Status(facts.path + " is empty");
    if (facts.version == 0) return Status(facts.path + " is not a recording's index");
    if (!zeva::index_version_known(facts.version)) {
      return Status(facts.path + " has version " + std::to_string(facts.version) +
                    " of the index format; this program knows 1 and 2");
    }
    if (!described.list.empty()) return {};
    return Status(facts.path + " describes no stream: line 2 should, and is missing or damaged");
  }

  void begin_streams() {
    decoder = zeva::RecordDecoder(described.audio);
    for (AVMediaType type : described.list) {
      StreamFacts stream;
      stream.audio = type == AVMEDIA_TYPE_AUDIO;
      stream.codec = stream.audio ? described.audio.codec : described.video.codec;
      stream.width = described.video.width;
      stream.height = described.video.height;
      stream.sample_rate = described.audio.sample_rate;
      stream.channels = described.audio.channels;
      facts.streams.push_back(stream);
      tallies.emplace_back(stream.audio ? described.audio.time_base : described.video.time_base);
    }
  }

  void read_records(std::string_view line) {
    ++facts.record_lines;
    std::string_view rest = line;
    zeva::IndexRecord record;
    std::string fault;   // the rest of a line is lost behind a record that cannot be used
    int64_t passed = 0;  // records of that rest
    while (!over && zeva::read_index_record(rest, facts.version, record)) {
      zeva::IndexedPacket packet = decoder.decode(record);
      if (fault.empty()) {
        fault = take(packet);
      } else {
        ++passed;
      }
    }
    if (!fault.empty() && passed > 0) {
      fault += "; " + count_text(passed, "packet", "packets") + " behind it lost";
    }
    if (fault.empty() && is_unfinished(rest)) {
      // Without a line end it is what a crash leaves.
      facts.cut_off = line.back() != '\n';
      if (!facts.cut_off) fault = "a record is cut off or garbled";
    }
    if (!fault.empty()) add_damage(fault);
  }

  static bool is_unfinished(std::string_view rest) {
    return rest.find_first_not_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
  }

  // Why the packet cannot be used; empty when it can.
  std::string take(const zeva::IndexedPacket& packet) {
    if (packet.size < 0 || packet.position < 0 || packet.position > INT64_MAX - packet.size) {
      over = true;
      return "a packet lies where no file can have it; nothing behind it can be placed";
    }
    auto stream = static_cast<size_t>(packet.stream_index);
    if (packet.stream_index < 0 || stream >= tallies.size()) {
      return "there is no stream " + std::to_string(packet.stream_index);
    }
    int64_t end = packet.position + packet.size;
    if (facts.media_begin == 0) facts.media_begin = packet.position;
    facts.media_end = std::max(facts.media_end, end);
    // The movie is read from front to back: behind the first packet it has not, it has none.
    held = held && facts.movie && end <= facts.movie->written_bytes;
    tallies[stream].add(packet, held);
    return {};
  }

  void add_damage(const std::string& what) {
    ++facts.damage_count;
    if (facts.damages.size() < kDamagesKept) facts.damages.push_back({lines.line_number(), what});
  }

  LineReader& lines;
  IndexFacts& facts;
  zeva::IndexStreams described;
  zeva::RecordDecoder decoder;
  std::vector<StreamTally> tallies;
  bool held = true;
  bool over = false;
};

}  // namespace

Status analyse_index(const std::string& index_path, const std::string& movie_path,
                     IndexFacts& facts) {
  facts = {};
  facts.path = index_path;
  LineReader lines(zeva::kIndexLineBufferBytes - 1);
  Status status = lines.open(index_path);
  if (!status.ok()) return status;
  std::error_code error;
  facts.file_bytes = static_cast<int64_t>(fs::file_size(fs::u8path(index_path), error));
  if (!movie_path.empty()) {
    facts.movie_path = movie_path;
    status = read_mp4_layout(movie_path, facts.movie.emplace());
    if (!status.ok()) return status;
  }
  return IndexAnalysis(lines, facts).run();
}

}  // namespace zeva_tool
