// The states of a disk when the power fails at some point of a write log.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "write_log.h"

namespace zeva_test {

// How one file comes to be what it is in a state.
enum class Loss {
  kNone,    // all that was written is there
  kTorn,    // all, and a part of the next write
  kLag,     // all up to some instant since the last sync; the size may be of a later one
  kWrites,  // any writes since the last sync, in any order; the size may cover missing ones
  kBlocks,  // each block of 512 or 4096 bytes as it was at some instant since the last sync
};
constexpr int kLosses = 5;
const char* loss_name(Loss loss);

struct DiskState {
  size_t cut = 0;  // so many operations had begun to take effect
  std::string movie, index;
  bool has_movie = false, has_index = false;
  Loss movie_loss = Loss::kNone, index_loss = Loss::kNone;
  bool names_lost = false;
};

class DiskStates {
 public:
  // With `journal`, names and what makes files shorter reach the disk in order, and any sync holds
  // those before it, as ext4, XFS and NTFS do. Without, as on a camera's exFAT card, each is on its
  // own: a name is held by a sync of the folder, a file's length by a sync of the file.
  DiskStates(const WriteLog& log, std::string movie_name, std::string index_name, bool journal);

  size_t cuts() const { return log.operations.size() + 1; }

  // A crash of the program leaves everything up to the cut, and nothing else.
  DiskState exact(size_t cut) const;

  // Any state, the same for the same number.
  DiskState random(const std::string& number) const;

  // A file's bytes at the cut, and those that completed syncs hold; the rest is there by luck.
  std::string written(const std::string& name, size_t cut) const;
  std::string synced(const std::string& name, size_t cut) const;

 private:
  // A file's operations, as far as they change its bytes.
  struct History {
    std::vector<const Operation*> operations;
    std::vector<size_t> places;   // in the log
    std::vector<size_t> shorter;  // those that make the file shorter
  };
  using Random = std::mt19937_64;

  size_t last_version(int32_t file, size_t cut) const;
  size_t synced_version(int32_t file, size_t cut) const;
  size_t held_names(size_t cut) const;
  std::string content(int32_t file, size_t version) const;
  std::string lossy(int32_t file, size_t cut, size_t kept, Loss loss, Random& random) const;
  std::string torn(int32_t file, size_t cut, Random& random) const;
  std::string some_writes(int32_t file, size_t first, size_t last, Random& random) const;
  std::string some_blocks(int32_t file, size_t first, size_t last, Random& random) const;
  std::map<std::string, int32_t> names(size_t cut, size_t kept, Random* random) const;
  void fill(DiskState& state, Random* random) const;

  const WriteLog& log;
  const std::string movie_name, index_name;
  const bool journal;
  std::vector<History> histories;  // by file
};

}  // namespace zeva_test
