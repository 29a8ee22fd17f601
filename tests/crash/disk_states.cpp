// A file on the disk is some version of each of its parts between what the last completed sync
// holds and what was written at the cut. Operations that make a file shorter part its history into
// eras: a file system frees what is cut off only with the new size, so bytes of two eras never mix.
#include "disk_states.h"

#include <algorithm>
#include <set>

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
                       bool follow)
    : log(written_log),
      movie_name(std::move(movie)),
      index_name(std::move(index)),
      names_follow_files(follow),
      histories(log.before.size()) {
  for (size_t place = 0; place < log.operations.size(); ++place) {
    const Operation& o = log.operations[place];
    if (o.kind != Operation::kWrite && o.kind != Operation::kResize) continue;
    histories[static_cast<size_t>(o.file)].operations.push_back(&o);
    histories[static_cast<size_t>(o.file)].places.push_back(place);
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
  const auto found = names(state.cut, state.names_lost ? random : nullptr);
  const auto all = names(state.cut, nullptr);
  Random unused;
  const auto read = [&](const std::string& name, Loss loss, bool& there, std::string& content_now,
                        std::string& held) {
    const auto file = found.find(name);
    there = file != found.end();
    if (there) content_now = lossy(file->second, state.cut, loss, random ? *random : unused);
    const auto last = all.find(name);
    if (last != all.end()) held = content(last->second, synced(last->second, state.cut));
  };
  read(movie_name, state.movie_loss, state.has_movie, state.movie, state.synced_movie);
  read(index_name, state.index_loss, state.has_index, state.index, state.synced_index);
  state.names_lost = found != all;
}

// ---- versions: so many of the file's operations are applied

size_t DiskStates::written(const History& history, size_t cut) const {
  const auto end = std::lower_bound(history.places.begin(), history.places.end(), cut);
  return static_cast<size_t>(end - history.places.begin());
}

size_t DiskStates::synced(int32_t file, size_t cut) const {
  std::map<int64_t, size_t> begun;
  size_t version = 0;
  for (size_t place = 0; place < cut; ++place) {
    const Operation& o = log.operations[place];
    if (o.file != file) continue;
    if (o.kind == Operation::kSyncBegin) {
      begun[o.value] = written(histories[static_cast<size_t>(file)], place);
    }
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

std::string DiskStates::lossy(int32_t file, size_t cut, Loss loss, Random& random) const {
  const History& history = histories[static_cast<size_t>(file)];
  const size_t last = written(history, cut);
  if (loss == Loss::kNone) return content(file, last);
  if (loss == Loss::kTorn) return torn(file, cut, random);
  // The era: the size on the disk is that of this version.
  const size_t held = synced(file, cut);
  const size_t sized = pick(random, held, last);
  size_t first = held, end = last;
  std::string bytes = content(file, held);
  for (size_t i = held; i < last; ++i) {
    const size_t size = bytes.size();
    perform(*history.operations[i], bytes);
    if (bytes.size() >= size) continue;
    if (i < sized) first = i + 1;
    if (i >= sized) end = std::min(end, i);
  }
  const std::string sized_content = content(file, sized);
  std::string result;
  switch (loss) {
    case Loss::kWrites:
      result = some_writes(file, first, end, random);
      break;
    case Loss::kBlocks:
      result = some_blocks(file, first, end, random);
      break;
    default:
      result = content(file, pick(random, first, sized));
  }
  const bool own_size = loss != Loss::kBlocks && chance(random, 0.5);
  if (!own_size && (loss == Loss::kBlocks || result.size() < sized_content.size())) {
    result.resize(sized_content.size());
  }
  return result;
}

std::string DiskStates::torn(int32_t file, size_t cut, Random& random) const {
  const History& history = histories[static_cast<size_t>(file)];
  const size_t version = written(history, cut);
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

bool DiskStates::name_synced(size_t place, size_t cut) const {
  const int32_t named = log.operations[place].file;
  std::set<int64_t> begun;
  for (size_t i = place + 1; i < cut; ++i) {
    const Operation& o = log.operations[i];
    const bool of_file = names_follow_files && o.file == named && named != Operation::kNoFile;
    if (o.kind == Operation::kFolderSyncBegin || (o.kind == Operation::kSyncBegin && of_file)) {
      begun.insert(o.value);
    }
    const bool end = o.kind == Operation::kFolderSyncEnd || o.kind == Operation::kSyncEnd;
    if (end && begun.count(o.value) != 0) return true;
  }
  return false;
}

std::map<std::string, int32_t> DiskStates::names(size_t cut, Random* random) const {
  std::map<std::string, int32_t> result = log.names;
  for (size_t place = 0; place < cut; ++place) {
    const Operation& o = log.operations[place];
    if (o.kind != Operation::kName) continue;
    if (random != nullptr && !name_synced(place, cut) && chance(*random, 0.5)) continue;
    if (o.file == Operation::kNoFile) result.erase(o.text);
    if (o.file != Operation::kNoFile) result[o.text] = o.file;
  }
  return result;
}

}  // namespace zeva_test
