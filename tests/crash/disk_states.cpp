// A file on the disk is some version of each of its parts between what the last completed sync
// holds and what was written at the cut. Operations that make a file shorter part its history into
// eras: a file system frees what is cut off only with the new size, so bytes of two eras never mix.
#include "disk_states.h"

#include <algorithm>
#include <set>
#include <utility>

namespace zeva_test {
namespace {

size_t pick(std::mt19937_64& random, size_t first, size_t last) {
  return std::uniform_int_distribution<size_t>(first, last)(random);
}

bool chance(std::mt19937_64& random, double probability) {
  return std::bernoulli_distribution(probability)(random);
}

}  // namespace

const char* loss_name(Loss loss) {
  static constexpr const char* kNames[kLosses] = {"none", "torn", "lag", "writes", "blocks"};
  return kNames[static_cast<size_t>(loss)];
}

DiskStates::DiskStates(const WriteLog& written_log, std::string movie, std::string index,
                       bool with_journal)
    : log(written_log),
      movie_name(std::move(movie)),
      index_name(std::move(index)),
      journal(with_journal),
      histories(log.before.size()) {
  std::vector<size_t> sizes;
  for (const std::string& content : log.before) sizes.push_back(content.size());
  for (size_t place = 0; place < log.operations.size(); ++place) {
    const Operation& o = log.operations[place];
    if (o.kind != Operation::kWrite && o.kind != Operation::kResize) continue;
    History& history = histories[static_cast<size_t>(o.file)];
    size_t& size = sizes[static_cast<size_t>(o.file)];
    const auto end = static_cast<size_t>(o.value) + o.text.size();
    if (o.kind == Operation::kResize && end < size) {
      history.shorter.push_back(history.places.size());
    }
    size = o.kind == Operation::kResize ? end : std::max(size, end);
    history.operations.push_back(&o);
    history.places.push_back(place);
  }
}

DiskState DiskStates::exact(size_t cut) const {
  DiskState state;
  state.cut = cut;
  fill(state, nullptr);
  return state;
}

DiskState DiskStates::random(const std::string& number) const {
  std::seed_seq seed(number.begin(), number.end());
  Random random(seed);
  DiskState state;
  // The stop is short, and the only time when both files change their kind.
  const size_t first = chance(random, 1.0 / 3) ? std::min(log.mark("stop"), cuts() - 1) : 0;
  state.cut = pick(random, first, cuts() - 1);
  state.movie_loss = static_cast<Loss>(pick(random, 0, kLosses - 1));
  state.index_loss = static_cast<Loss>(pick(random, 0, kLosses - 1));
  state.names_lost = chance(random, 0.1);
  fill(state, &random);
  return state;
}

void DiskStates::fill(DiskState& state, Random* random) const {
  // The journal's operations before this place are on the disk.
  const bool all = state.movie_loss <= Loss::kTorn || state.index_loss <= Loss::kTorn;
  size_t kept = state.cut;
  if (journal && random != nullptr && !all) {
    kept = pick(*random, held_names(state.cut), state.cut);
  }
  const auto found = names(state.cut, kept, state.names_lost ? random : nullptr);
  Random unused;
  const auto read = [&](const std::string& name, Loss loss, bool& there, std::string& bytes) {
    const auto file = found.find(name);
    there = file != found.end();
    if (there) {
      bytes = lossy(file->second, state.cut, kept, loss, random != nullptr ? *random : unused);
    }
  };
  read(movie_name, state.movie_loss, state.has_movie, state.movie);
  read(index_name, state.index_loss, state.has_index, state.index);
  state.names_lost = found != names(state.cut, state.cut, nullptr);
}

std::string DiskStates::written(const std::string& name, size_t cut) const {
  const auto all = names(cut, cut, nullptr);
  const auto file = all.find(name);
  return file != all.end() ? content(file->second, last_version(file->second, cut)) : "";
}

std::string DiskStates::synced(const std::string& name, size_t cut) const {
  const auto all = names(cut, cut, nullptr);
  const auto file = all.find(name);
  return file != all.end() ? content(file->second, synced_version(file->second, cut)) : "";
}

// ---- versions: so many of the file's operations are applied

size_t DiskStates::last_version(int32_t file, size_t cut) const {
  const auto& places = histories[static_cast<size_t>(file)].places;
  return static_cast<size_t>(std::lower_bound(places.begin(), places.end(), cut) - places.begin());
}

size_t DiskStates::synced_version(int32_t file, size_t cut) const {
  std::map<int64_t, size_t> begun;
  size_t version = 0;
  for (size_t place = 0; place < cut; ++place) {
    const Operation& o = log.operations[place];
    if (o.file != file) continue;
    if (o.kind == Operation::kSyncBegin) begun[o.value] = last_version(file, place);
    if (o.kind == Operation::kSyncEnd) version = std::max(version, begun[o.value]);
  }
  return version;
}

std::string DiskStates::content(int32_t file, size_t version) const {
  const auto number = static_cast<size_t>(file);
  std::string bytes = log.before[number];
  for (size_t i = 0; i < version; ++i) perform(*histories[number].operations[i], bytes);
  return bytes;
}

// ---- losses

std::string DiskStates::lossy(int32_t file, size_t cut, size_t kept, Loss loss,
                              Random& random) const {
  const History& history = histories[static_cast<size_t>(file)];
  const size_t last = last_version(file, cut);
  if (loss == Loss::kNone) return content(file, last);
  if (loss == Loss::kTorn) return torn(file, cut, random);
  size_t first = synced_version(file, cut), end = last;
  const auto bound = [&](auto is_done) {
    for (const size_t i : history.shorter) {
      if (i < first || i >= end) continue;
      (is_done(i) ? first : end) = is_done(i) ? i + 1 : i;
    }
  };
  if (journal) bound([&](size_t i) { return history.places[i] < kept; });
  // The size on the disk is that of this version, and so is the era.
  const size_t sized = pick(random, first, end);
  bound([&](size_t i) { return i < sized; });
  const size_t size = content(file, sized).size();
  if (loss == Loss::kBlocks) {
    std::string result = some_blocks(file, first, end, random);
    result.resize(size);
    return result;
  }
  std::string result = loss == Loss::kWrites ? some_writes(file, first, end, random)
                                             : content(file, pick(random, first, sized));
  if (result.size() < size && chance(random, 0.5)) result.resize(size);
  return result;
}

std::string DiskStates::torn(int32_t file, size_t cut, Random& random) const {
  const History& history = histories[static_cast<size_t>(file)];
  const size_t version = last_version(file, cut);
  std::string bytes = content(file, version);
  // Only the very next operation may have begun.
  if (version == history.places.size() || history.places[version] != cut) return bytes;
  Operation part = *history.operations[version];
  if (part.kind != Operation::kWrite) return bytes;
  const size_t size = pick(random, 0, part.text.size());
  part.text.resize(chance(random, 0.5) ? size : size / 512 * 512);
  perform(part, bytes);
  return bytes;
}

std::string DiskStates::some_writes(int32_t file, size_t first, size_t last, Random& random) const {
  const auto& operations = histories[static_cast<size_t>(file)].operations;
  static constexpr double kShares[] = {0.1, 0.5, 0.9};
  const double share = kShares[pick(random, 0, 2)];
  std::vector<const Operation*> chosen;
  for (size_t i = first; i < last; ++i) {
    if (chance(random, share)) chosen.push_back(operations[i]);
  }
  std::shuffle(chosen.begin(), chosen.end(), random);
  std::string bytes = content(file, first);
  for (const Operation* o : chosen) perform(*o, bytes);
  return bytes;
}

std::string DiskStates::some_blocks(int32_t file, size_t first, size_t last, Random& random) const {
  const auto& operations = histories[static_cast<size_t>(file)].operations;
  const size_t block = chance(random, 0.5) ? 512 : 4096;
  std::set<size_t> touched;
  for (size_t i = first; i < last; ++i) {
    const auto begin = static_cast<size_t>(operations[i]->value);
    for (size_t b = begin / block; b * block < begin + operations[i]->text.size(); ++b) {
      touched.insert(b);
    }
  }
  std::multimap<size_t, size_t> by_version;
  for (const size_t b : touched) by_version.emplace(pick(random, first, last), b);
  std::string now = content(file, first);
  std::string disk = now;
  for (size_t version = first; version <= last; ++version) {
    if (version > first) perform(*operations[version - 1], now);
    const auto [begin, end] = by_version.equal_range(version);
    for (auto chosen = begin; chosen != end; ++chosen) {
      const size_t from = chosen->second * block;
      if (from >= now.size()) continue;
      const std::string bytes = now.substr(from, block);
      if (disk.size() < from + bytes.size()) disk.resize(from + bytes.size());
      disk.replace(from, bytes.size(), bytes);
    }
  }
  return disk;
}

// ---- names

// The place in the log before which completed syncs hold all names: those of the folder; with a
// journal, any.
size_t DiskStates::held_names(size_t cut) const {
  std::map<int64_t, size_t> begun;
  size_t held = 0;
  for (size_t place = 0; place < cut; ++place) {
    const Operation& o = log.operations[place];
    if (o.kind == Operation::kFolderSyncBegin || (journal && o.kind == Operation::kSyncBegin)) {
      begun[o.value] = place;
    }
    const bool ends = o.kind == Operation::kFolderSyncEnd || o.kind == Operation::kSyncEnd;
    if (ends && begun.count(o.value) != 0) held = std::max(held, begun[o.value]);
  }
  return held;
}

std::map<std::string, int32_t> DiskStates::names(size_t cut, size_t kept, Random* random) const {
  std::map<std::string, int32_t> result = log.names;
  const size_t held = held_names(cut);
  for (size_t place = 0; place < cut; ++place) {
    const Operation& o = log.operations[place];
    if (o.kind != Operation::kName) continue;
    if (journal && place >= kept) continue;
    if (!journal && random != nullptr && place >= held && chance(*random, 0.5)) continue;
    if (o.file == Operation::kNoFile) result.erase(o.text);
    if (o.file != Operation::kNoFile) result[o.text] = o.file;
  }
  return result;
}

}  // namespace zeva_test
