#include "progress_json.h"

#include "json_text.h"

namespace zeva_tool {
namespace {

using Json = nlohmann::ordered_json;

const char* phase_name(int32_t phase) {
  switch (phase) {
    case kZevaOutputOpening:
      return "opening";
    case kZevaOutputLive:
      return "live";
    case kZevaOutputDropping:
      return "dropping";
    case kZevaOutputReconnecting:
      return "reconnecting";
    case kZevaOutputGivenUp:
      return "given up";
    case kZevaOutputFinished:
      return "finished";
    default:
      return "unknown";
  }
}

// -1 stands for what there is not.
Json known(int64_t value) { return value < 0 ? Json() : Json(value); }
Json known_seconds(int64_t us) { return us < 0 ? Json() : Json(json_seconds(us)); }

Json output_json(const ZevaOutputState& state, const std::string& url) {
  Json json;
  json["output"] = url;
  json["phase"] = phase_name(state.phase);
  json["written_seconds"] = json_seconds(state.written_us);
  json["bytes"] = state.bytes_written;
  json["packets"] = state.packets_written;
  json["packets_dropped"] = state.packets_dropped;
  json["pictures_dropped"] = state.pictures_dropped;
  json["queued_packets"] = state.queued_packets;
  json["queued_seconds"] = json_seconds(state.queued_us);
  json["queued_bytes"] = state.queued_bytes;
  json["bits_per_second"] = state.bits_per_second;
  json["reconnects"] = state.reconnects;
  json["last_error"] = state.last_error;
  json["last_error_seconds_ago"] = known_seconds(state.last_error_us);
  json["synced_seconds"] = known_seconds(state.synced_us);
  json["disk_free_bytes"] = known(state.disk_free_bytes);
  return json;
}

Json statistics_json(const ZevaStatistics& statistics) {
  Json json;
  json["pictures_given"] = statistics.pictures_given;
  json["pictures_refused"] = statistics.pictures_refused;
  json["pictures_encoded"] = statistics.pictures_encoded;
  json["convert_mean_us"] = statistics.convert_mean_us;
  json["convert_p99_us"] = statistics.convert_p99_us;
  json["encode_mean_us"] = statistics.encode_mean_us;
  json["encode_p99_us"] = statistics.encode_p99_us;
  json["sound_minus_picture_seconds"] = json_seconds(statistics.sound_minus_picture_us);
  json["crash_cost_seconds"] = known_seconds(statistics.crash_cost_us);
  json["bit_rate"] = statistics.bit_rate;
  json["stream_bit_rate"] = statistics.stream_bit_rate;
  return json;
}

}  // namespace

Json progress_json(const Progress& progress, const std::vector<std::string>& urls) {
  Json json;
  json["seconds"] = json_seconds(progress.movie_us);
  json["paused"] = progress.paused;
  json["pictures"] = progress.pictures;
  json["pictures_dropped"] = progress.dropped;
  json["failures"] = progress.failures;
  json["outputs"] = Json::array();
  for (size_t i = 0; i < urls.size() && i < progress.outputs.size(); ++i) {
    json["outputs"].push_back(output_json(progress.outputs[i], urls[i]));
  }
  if (progress.statistics.outputs > 0) json["statistics"] = statistics_json(progress.statistics);
  return json;
}

std::string json_line(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace zeva_tool
