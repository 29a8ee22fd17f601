#include "recovery_plan.h"

#include <filesystem>
#include <system_error>

#include "index_analysis.h"
#include "json_text.h"
#include "movie_count.h"
#include "repair_outcome.h"
#include "text_format.h"

namespace fs = std::filesystem;

namespace zeva_tool {
namespace {

using State = RecoveryPlan::State;

// A recovery that reaches as far is as good as a new one, even if its container refused packets.
constexpr int64_t kAsLongUs = 100000;

bool is_complete(const std::string& recovered, const IndexFacts& facts) {
  MovieTable table;
  if (!read_movie_table(recovered, table).ok()) return false;
  return table.packets >= facts.held_packets() ||
         table.duration_us >= facts.held_duration_us() - kAsLongUs;
}

// An earlier recovery that was cut short stays what it is; the new one gets a number.
void choose_output(RecoveryPlan& plan) {
  std::error_code error;
  plan.state = State::kRecoverable;
  for (int number = 1;; ++number) {
    plan.output = recovered_path(plan.movie.path, number);
    if (!fs::exists(fs::u8path(plan.output), error)) return;
    if (!is_complete(plan.output, plan.facts)) continue;
    plan.state = State::kRecovered;
    return;
  }
}

std::string what_can_be_recovered(const RecoveryPlan& plan) {
  int64_t held = plan.facts.held_packets();
  int64_t all = plan.facts.packets();
  std::string text = length_text(plan.facts.held_duration_us()) + " can be recovered (" +
                     (held < all ? std::to_string(held) + " of " : "") +
                     count_text(all, "packet", "packets") + ")";
  if (plan.facts.damage_count > 0) text += ", the index is damaged";
  if (plan.facts.hole_count > 0) text += ", the index has a hole";
  return text;
}

std::string state_text(const RecoveryPlan& plan) {
  switch (plan.state) {
    case State::kRecoverable:
      return what_can_be_recovered(plan);
    case State::kRecovered:
      return "recovered already: " + plan.output;
    case State::kGrowing:
      return "is being recorded right now; left alone";
    case State::kLeftover:
      return "is what an interrupted recovery left; it may be deleted";
    case State::kNoIndex:
      return "no index beside it; cannot be recovered";
    case State::kUnreadable:
    case State::kHopeless:
      return plan.reason;
  }
  return {};
}

const char* state_word(State state) {
  switch (state) {
    case State::kRecoverable:
      return "recoverable";
    case State::kRecovered:
      return "recovered already";
    case State::kGrowing:
      return "being recorded";
    case State::kLeftover:
      return "leftover";
    case State::kNoIndex:
      return "no index";
    case State::kUnreadable:
      return "unreadable";
    case State::kHopeless:
      return "hopeless";
  }
  return "";
}

}  // namespace

RecoveryPlan plan_recovery(const UnfinishedMovie& movie) {
  RecoveryPlan plan;
  plan.movie = movie;
  std::error_code error;
  uintmax_t bytes = fs::file_size(fs::u8path(movie.path), error);
  plan.bytes = error ? 0 : static_cast<int64_t>(bytes);
  if (!movie.unreadable.empty()) {
    plan.state = State::kUnreadable;
    plan.reason = movie.unreadable;
    return plan;
  }
  if (movie.index.empty()) {
    plan.state = movie.is_recovery ? State::kLeftover : State::kNoIndex;
    return plan;
  }
  Status status = analyse_index(movie.index, movie.path, plan.facts);
  plan.reason = status.ok() ? why_hopeless(plan.facts) : status.sentence();
  if (movie.is_growing) {
    plan.state = State::kGrowing;
  } else if (!plan.reason.empty()) {
    plan.state = State::kHopeless;
  } else {
    choose_output(plan);
  }
  return plan;
}

std::string plan_text(const RecoveryPlan& plan, size_t name_columns) {
  bool known = plan.facts.packets() > 0;
  return padded(plan.movie.path, name_columns) +
         formatted("  %10s  %9s  ", known ? movie_time(plan.facts.duration_us()).c_str() : "-",
                   size_text(plan.bytes).c_str()) +
         state_text(plan);
}

nlohmann::ordered_json plan_json(const RecoveryPlan& plan) {
  nlohmann::ordered_json json;
  json["movie"] = plan.movie.path;
  json["bytes"] = plan.bytes;
  if (!plan.movie.index.empty()) json["index"] = plan.movie.index;
  json["state"] = state_word(plan.state);
  bool has_reason = plan.state == State::kUnreadable || plan.state == State::kHopeless;
  if (has_reason) json["reason"] = plan.reason;
  if (!plan.output.empty()) json["output"] = plan.output;
  json["duration_seconds"] = json_seconds(plan.facts.duration_us());
  json["recoverable_seconds"] = json_seconds(plan.facts.held_duration_us());
  json["recorded_packets"] = plan.facts.packets();
  json["held_packets"] = plan.facts.held_packets();
  return json;
}

}  // namespace zeva_tool
