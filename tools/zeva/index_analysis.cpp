#include "index_analysis.h"

#include <algorithm>

#include "file_check.h"
#include "index_reader.h"
#include "packet_recovery.h"
#include "stream_tally.h"
#include "text_format.h"

namespace zeva_tool {
namespace {

constexpr size_t kDamagesKept = 5;

using Fate = zeva::PacketRecovery::Fate;

// Goes through an index the way the repair does, so that what it finds is what a repair will find.
class IndexAnalysis {
 public:
  // `the_movie` is null when there is none to compare with.
  IndexAnalysis(zeva::IndexReader& the_index, zeva::PacketRecovery* the_movie,
                IndexFacts& the_facts)
      : index(the_index), movie(the_movie), facts(the_facts) {}

  Status run() {
    facts.version = index.version();
    Status status = check_head();
    if (!status.ok()) return status;
    begin_streams();
    while (!over && index.next_line()) read_line();
    for (size_t i = 0; i < tallies.size(); ++i) tallies[i].finish(facts.streams[i]);
    return {};
  }

 private:
  Status check_head() const {
    if (index.is_empty()) return Status(facts.path + " is empty");
    if (facts.version == 0) return Status(facts.path + " is not a recording's index");
    if (!zeva::index_version_known(facts.version)) {
      return Status(facts.path + " has version " + std::to_string(facts.version) +
                    " of the index format; this program knows 1 and 2");
    }
    if (!index.streams().list.empty()) return {};
    return Status(facts.path + " describes no stream: line 2 should, and is missing or damaged");
  }

  void begin_streams() {
    const zeva::IndexStreams& described = index.streams();
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
    if (movie) movie->begin(described);
  }

  void read_line() {
    ++facts.record_lines;
    std::string fault;   // the rest of a line is lost behind a record that cannot be used
    int64_t passed = 0;  // records of that rest
    for (zeva::IndexedPacket packet; !over && index.next_packet(packet);) {
      if (fault.empty()) {
        fault = take(packet);
      } else {
        if (movie) movie->pass_over(packet);
        ++passed;
      }
    }
    if (!fault.empty() && passed > 0) {
      fault += "; " + count_text(passed, "packet", "packets") + " behind it lost";
    }
    if (fault.empty() && index.has_rest()) {
      facts.cut_off = index.is_cut_off();  // what a crash leaves
      if (!facts.cut_off) fault = "a record is cut off or garbled";
    }
    if (!fault.empty()) add_damage(fault);
  }

  // Why the packet cannot be used; empty when it can.
  std::string take(const zeva::IndexedPacket& packet) {
    if (packet.size < 0 || packet.position < 0 || packet.position > INT64_MAX - packet.size) {
      over = true;
      return "a packet lies where no file can have it; nothing behind it can be placed";
    }
    auto stream = static_cast<size_t>(packet.stream_index);
    if (packet.stream_index < 0 || stream >= tallies.size()) {
      if (movie) movie->pass_over(packet);
      return "there is no stream " + std::to_string(packet.stream_index);
    }
    const Fate fate = fate_of(packet);
    if (packet.skipped_bytes > 0 && fate != Fate::kBehindEnd) add_hole(packet);
    if (facts.media_begin == 0) facts.media_begin = packet.position;
    facts.media_end = std::max(facts.media_end, packet.position + packet.size);
    tallies[stream].add(packet, fate);
    latest_end_us = std::max(latest_end_us, tallies[stream].end_us());
    return fate == Fate::kUnreadable ? "its place in " + facts.movie_path + " cannot be read"
                                     : std::string();
  }

  // The movie is read from front to back: behind the first packet it has not, it has none.
  Fate fate_of(const zeva::IndexedPacket& packet) {
    if (!movie) return Fate::kRecovered;
    return movie->at_end() ? Fate::kBehindEnd : movie->take(packet);
  }

  void add_hole(const zeva::IndexedPacket& packet) {
    IndexHole hole;
    hole.line = index.line_number();
    hole.bytes = packet.skipped_bytes;
    hole.at_us = latest_end_us;
    hole.us = std::max<int64_t>(
        0, tallies[static_cast<size_t>(packet.stream_index)].us(packet.pts) - latest_end_us);
    facts.add_hole(hole);
  }

  void add_damage(const std::string& what) {
    ++facts.damage_count;
    if (facts.damages.size() < kDamagesKept) facts.damages.push_back({index.line_number(), what});
  }

  zeva::IndexReader& index;
  zeva::PacketRecovery* movie;
  IndexFacts& facts;
  std::vector<StreamTally> tallies;
  int64_t latest_end_us = 0;
  bool over = false;
};

}  // namespace

Status analyse_index(const std::string& index_path, const std::string& movie_path,
                     IndexFacts& facts) {
  facts = {};
  facts.path = index_path;
  Status status = check_is_file(index_path);
  if (!status.ok()) return status;
  zeva::IndexReader index;
  if (!index.open(index_path)) return Status(index_path + " cannot be opened");
  facts.file_bytes = zeva::file_size(index_path);
  zeva::PacketRecovery movie;
  if (!movie_path.empty()) {
    facts.movie_path = movie_path;
    status = read_mp4_layout(movie_path, facts.movie.emplace());
    if (!status.ok()) return status;
    if (!movie.open(movie_path)) return Status(movie_path + " cannot be opened");
  }
  return IndexAnalysis(index, facts.movie ? &movie : nullptr, facts).run();
}

}  // namespace zeva_tool
