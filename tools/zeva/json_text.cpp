#include "json_text.h"

#include "answers.h"
#include "console_line.h"

namespace zeva_tool {
namespace {

using Json = nlohmann::ordered_json;

Json stream_json(const StreamFacts& stream) {
  Json json;
  json["type"] = stream.audio ? "audio" : "video";
  json["codec"] = stream.codec;
  if (stream.audio) {
    json["sample_rate"] = stream.sample_rate;
    json["channels"] = stream.channels;
  } else {
    json["width"] = stream.width;
    json["height"] = stream.height;
  }
  json["packets"] = stream.packets;
  json["bytes"] = stream.bytes;
  json["start_seconds"] = json_seconds(stream.start_us);
  json["duration_seconds"] = json_seconds(stream.duration_us());
  json["packets_per_second"] = stream.packets_per_second;
  json["bits_per_second"] = stream.duration_us() > 0
                                ? stream.bytes * 8e6 / static_cast<double>(stream.duration_us())
                                : 0.0;
  json["key_packets"] = stream.key_packets;
  json["longest_key_distance_seconds"] = json_seconds(stream.longest_key_distance_us);
  json["gaps"] = stream.gaps;
  json["longest_gap_seconds"] = json_seconds(stream.longest_gap_us);
  json["longest_gap_at_seconds"] = json_seconds(stream.longest_gap_at_us);
  json["packets_back_in_time"] = stream.unordered;
  return json;
}

Json movie_json(const IndexFacts& facts) {
  Json json;
  json["path"] = facts.movie_path;
  json["bytes"] = facts.movie->file_bytes;
  json["has_trailer"] = facts.movie->has_trailer;
  json["held_packets"] = facts.held_packets();
  json["held_seconds"] = json_seconds(facts.held_duration_us());
  json["lost_packets"] = facts.lost_packets();
  json["dependent_packets"] = facts.dependent_packets();
  json["unrecorded_bytes"] = facts.unrecorded_bytes();
  json["unrecorded_seconds_estimate"] = json_seconds(facts.unrecorded_us());
  return json;
}

}  // namespace

std::string printed(const Json& object) {
  return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

int refuse(const Terminal& terminal, bool json, const Status& why, int exit_status) {
  if (json) {
    Json object;
    object["error"] = why.sentence();
    object["exit_status"] = exit_status;
    answer(terminal, printed(object));
  }
  ConsoleLine(terminal).message(why.sentence());
  return finish_answers(terminal, exit_status);
}

Json facts_json(const IndexFacts& facts) {
  Json json;
  json["index"] = facts.path;
  json["bytes"] = facts.file_bytes;
  json["version"] = facts.version;
  json["packets"] = facts.packets();
  json["record_lines"] = facts.record_lines;
  json["duration_seconds"] = json_seconds(facts.duration_us());
  json["bits_per_second"] = facts.bits_per_second();
  json["streams"] = Json::array();
  for (const StreamFacts& stream : facts.streams) {
    json["streams"].push_back(stream_json(stream));
    if (!facts.movie) continue;
    json["streams"].back()["held_packets"] = stream.held_packets;
    json["streams"].back()["lost_packets"] = stream.lost_packets;
    json["streams"].back()["dependent_packets"] = stream.dependent_packets;
    json["streams"].back()["held_seconds"] = json_seconds(stream.held_duration_us());
  }
  const StreamFacts* video = facts.first(false);
  const StreamFacts* audio = facts.first(true);
  if (video && audio) {
    json["audio_behind_video_seconds"] = json_seconds(audio->end_us - video->end_us);
  }
  json["cut_off"] = facts.cut_off;
  json["damaged_lines"] = facts.damage_count;
  json["damages"] = Json::array();
  for (const IndexDamage& damage : facts.damages) {
    json["damages"].push_back({{"line", damage.line}, {"what", damage.what}});
  }
  json["hole_bytes"] = facts.hole_bytes;
  json["hole_seconds_estimate"] = json_seconds(facts.hole_us);
  json["holes"] = Json::array();
  for (const IndexHole& hole : facts.holes) {
    json["holes"].push_back({{"line", hole.line},
                             {"bytes", hole.bytes},
                             {"at_seconds", json_seconds(hole.at_us)},
                             {"seconds_estimate", json_seconds(hole.us)}});
  }
  if (facts.movie) json["movie"] = movie_json(facts);
  return json;
}

}  // namespace zeva_tool
