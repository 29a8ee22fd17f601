#include "repair_outcome.h"

#include <algorithm>

#include "exit_status.h"
#include "inspect_text.h"
#include "text_format.h"

namespace zeva_tool {
namespace {

std::string packets_text(int64_t count) { return count_text(count, "packet", "packets"); }

// What is behind the end of the recovered movie.
void add_losses_at_the_end(const IndexFacts& facts, std::vector<std::string>& losses) {
  int64_t missing =
      facts.packets() - facts.held_packets() - facts.lost_packets() - facts.dependent_packets();
  if (missing > 0) {
    losses.push_back("the last " + packets_text(missing) + " of the index, " +
                     length_text(facts.end_us() - facts.held_end_us()) +
                     ": their bytes had not reached " + facts.movie_path);
  }
  if (facts.unrecorded_bytes() > 0) {
    losses.push_back("the last " + size_text(facts.unrecorded_bytes()) + " of " + facts.movie_path +
                     ", about " + length_text(facts.unrecorded_us()) +
                     ": no record of them had reached " + facts.path);
  } else if (facts.cut_off) {
    losses.push_back("the last record of " + facts.path + ": it is cut off");
  }
}

void add_losses_within(const IndexFacts& facts, const RepairOutcome& outcome,
                       std::vector<std::string>& losses) {
  int64_t left_out = facts.held_packets() - outcome.packets();
  if (left_out > 0) {
    std::string why =
        outcome.run.stopped_by_user ? "the repair was stopped before" : "not taken by the output";
    losses.push_back(packets_text(left_out) + " that " + facts.movie_path + " holds: " + why);
  }
  int64_t damaged = outcome.damaged();
  if (damaged > 0) {
    bool foreign = damaged > outcome.packets() / 4;  // nearly all pictures of most recordings
    losses.push_back(count_text(damaged, "picture is", "pictures are") + " damaged" +
                     (foreign ? "; does the index belong to this movie?" : ""));
  }
  for (const std::string& sentence : damage_sentences(facts)) losses.push_back(sentence);
}

}  // namespace

int64_t RepairOutcome::packets() const {
  int64_t sum = 0;
  for (const CountedStream& stream : streams) sum += stream.packets;
  return sum;
}

int64_t RepairOutcome::damaged() const {
  int64_t sum = 0;
  for (const CountedStream& stream : streams) sum += stream.damaged;
  return sum;
}

int64_t RepairOutcome::duration_us() const {
  int64_t start = INT64_MAX;
  int64_t end = INT64_MIN;
  for (const CountedStream& stream : streams) {
    if (stream.packets == 0) continue;
    start = std::min(start, stream.start_us);
    end = std::max(end, stream.end_us);
  }
  return end > start ? end - start : 0;
}

void judge_repair(const IndexFacts& facts, RepairOutcome& outcome) {
  std::vector<std::string>& losses = outcome.losses;
  losses.clear();
  for (const Failure& failure : outcome.run.failures) {
    losses.push_back("the repair failed: " + failure.text);
  }
  if (losses.empty() && !outcome.unreadable.empty()) losses.push_back(outcome.unreadable);
  if (outcome.packets() == 0) {
    outcome.exit_status = kExitFailure;
    if (losses.empty()) losses.emplace_back("the repair brought back no packet");
    return;
  }
  add_losses_within(facts, outcome, losses);
  add_losses_at_the_end(facts, losses);
  outcome.exit_status = losses.empty() ? kExitSuccess : kExitPartly;
}

std::string why_hopeless(const IndexFacts& facts) {
  if (facts.held_packets() > 0) return {};
  if (facts.packets() == 0) {
    std::string damage = facts.damages.empty() ? "" : "; " + damage_sentences(facts).front();
    return "nothing can be recovered: no record had reached " + facts.path + damage;
  }
  return "nothing can be recovered: " + facts.movie_path +
         " holds none of the packets that its index tells of";
}

}  // namespace zeva_tool
