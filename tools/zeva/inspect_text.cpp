#include "inspect_text.h"

#include <algorithm>

#include "text_format.h"

namespace zeva_tool {
namespace {

std::string rate_text(double bits_per_second) {
  return bits_per_second < 1e6 ? formatted("%.0f kbit/s", bits_per_second / 1e3)
                               : formatted("%.2f Mbit/s", bits_per_second / 1e6);
}

double stream_rate(const StreamFacts& stream) {
  auto duration = static_cast<double>(stream.duration_us());
  return duration > 0 ? static_cast<double>(stream.bytes) * 8e6 / duration : 0;
}

std::string stream_lines(size_t number, const StreamFacts& stream) {
  std::string text = "  stream " + std::to_string(number) + "  " + stream_name(stream) + "\n";
  if (stream.packets == 0) return text + "    no packets\n";
  text += "    " + count_text(stream.packets, "packet", "packets") + ", " +
          length_text(stream.duration_us()) +
          formatted(", %.2f a second, ", stream.packets_per_second) +
          rate_text(stream_rate(stream)) + "\n";
  if (!stream.audio) {
    text += "    " + count_text(stream.key_packets, "key frame", "key frames") + ", at most " +
            length_text(stream.longest_key_distance_us) + " apart\n";
  }
  if (stream.gaps > 0) {
    text += "    " + count_text(stream.gaps, "gap", "gaps") + ", the longest " +
            length_text(stream.longest_gap_us) + " at " + movie_time(stream.longest_gap_at_us) +
            "\n";
  } else {
    text += "    no gaps\n";
  }
  if (stream.unordered > 0) {
    text += "    " + count_text(stream.unordered, "packet", "packets") + " back in time\n";
  }
  return text;
}

void add_count(int64_t all, size_t told, const char* one, const char* many,
               std::vector<std::string>& sentences) {
  const int64_t more = all - static_cast<int64_t>(told);
  if (more > 0) sentences.push_back(count_text(more, one, many));
}

std::string offset_line(const IndexFacts& facts) {
  const StreamFacts* video = facts.first(false);
  const StreamFacts* audio = facts.first(true);
  if (!video || !audio || video->packets == 0 || audio->packets == 0) return {};
  int64_t offset_us = audio->end_us - video->end_us;
  return "  the sound ends " + length_text(std::abs(offset_us)) +
         (offset_us < 0 ? " before" : " after") + " the pictures\n";
}

// Of what was recorded, as far as the index can tell: the packets of a hole are known by their
// bytes only.
double held_percent(const IndexFacts& facts) {
  constexpr double kMostWithHoles = 99.9;
  int64_t bytes = 0;
  for (const StreamFacts& stream : facts.streams) bytes += stream.bytes;
  const auto all = static_cast<double>(facts.packets());
  const auto recorded = static_cast<double>(bytes);
  if (all <= 0 || recorded <= 0) return 0;
  const double percent = 100.0 * static_cast<double>(facts.held_packets()) / all;
  if (facts.hole_bytes == 0) return percent;
  return std::min(kMostWithHoles,
                  percent * recorded / (recorded + static_cast<double>(facts.hole_bytes)));
}

std::string movie_lines(const IndexFacts& facts) {
  if (!facts.movie) return {};
  std::string text = facts.movie_path + ": " + size_text(facts.movie->file_bytes) +
                     (facts.movie->has_trailer ? ", finished\n" : ", without its trailer\n");
  text += "  holds " + std::to_string(facts.held_packets()) + " of " +
          count_text(facts.packets(), "packet", "packets") +
          formatted(" (%.1f %%), ", held_percent(facts)) + length_text(facts.held_duration_us()) +
          " of " + length_text(facts.duration_us()) + "\n";
  if (facts.unrecorded_bytes() > 0) {
    text += "  " + size_text(facts.unrecorded_bytes()) + " behind them have no record, about " +
            length_text(facts.unrecorded_us()) + "\n";
  }
  return text;
}

}  // namespace

std::string stream_name(const StreamFacts& stream) {
  if (stream.audio) {
    return "audio " + stream.codec + " " + std::to_string(stream.sample_rate) + " Hz, " +
           count_text(stream.channels, "channel", "channels");
  }
  return "video " + stream.codec + " " + std::to_string(stream.width) + "x" +
         std::to_string(stream.height);
}

std::vector<std::string> damage_sentences(const IndexFacts& facts) {
  std::vector<std::string> sentences;
  for (const IndexDamage& damage : facts.damages) {
    sentences.push_back("line " + std::to_string(damage.line) + " of " + facts.path +
                        " is damaged: " + damage.what);
  }
  add_count(facts.damage_count, facts.damages.size(), "further line is damaged",
            "further lines are damaged", sentences);
  for (const IndexHole& hole : facts.holes) {
    sentences.push_back(size_text(hole.bytes) + " at " + movie_time(hole.at_us) + ", about " +
                        length_text(hole.us) + ", have no record: line " +
                        std::to_string(hole.line) + " of " + facts.path + " is behind a hole");
  }
  add_count(facts.hole_count, facts.holes.size(), "further hole", "further holes", sentences);
  if (facts.lost_packets() > 0) {
    sentences.push_back(count_text(facts.lost_packets(), "packet", "packets") +
                        " lost: zeros stand in " + facts.movie_path +
                        " where bytes were never written");
  }
  if (facts.dependent_packets() > 0) {
    sentences.push_back(count_text(facts.dependent_packets(), "picture", "pictures") +
                        " lost: up to the next key frame they build on missing ones");
  }
  return sentences;
}

std::string facts_text(const IndexFacts& facts) {
  std::string text = facts.path + ": " + size_text(facts.file_bytes) + ", format version " +
                     std::to_string(facts.version) + "\n";
  text += "  " + length_text(facts.duration_us()) + ", " +
          count_text(facts.packets(), "packet", "packets") + " in " +
          count_text(facts.record_lines, "line", "lines") + ", " +
          rate_text(facts.bits_per_second()) + "\n";
  for (size_t i = 0; i < facts.streams.size(); ++i) text += stream_lines(i, facts.streams[i]);
  text += offset_line(facts);
  if (facts.cut_off) text += "  the last line is cut off in the middle of a record\n";
  for (const std::string& sentence : damage_sentences(facts)) text += "  " + sentence + "\n";
  return text + movie_lines(facts);
}

}  // namespace zeva_tool
