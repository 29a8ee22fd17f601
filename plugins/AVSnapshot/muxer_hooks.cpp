#include "muxer_hooks.h"

#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>

#include "immortal.h"
#include "logger.h"
#include "rw_lock.h"
#include "snapshot.h"

namespace zeva {
namespace {

struct MuxerEntries {
  int (*write_header)(AVFormatContext*) = nullptr;
  int (*write_packet)(AVFormatContext*, AVPacket*) = nullptr;
};

// Shared by all snapshots of the process. Muxer descriptions are static objects of FFmpeg that all
// contexts share, so a muxer is hooked once and stays hooked.
struct Registry {
  RwLock lock;
  std::set<const Snapshot*> live;                         // guarded by lock
  std::map<const AVOutputFormat*, MuxerEntries> entries;  // guarded by lock
};

Registry& registry() {
  static Immortal<Registry> instance;  // outlives every recording, also those of static objects
  return instance.value;
}

struct Target {
  Snapshot* snapshot;  // null for a context that no live snapshot is attached to
  MuxerEntries saved;
};

Target find(const AVFormatContext* oc) {
  Registry& all = registry();
  const std::shared_lock<RwLock> guard(all.lock);
  auto* snapshot = static_cast<Snapshot*>(oc->opaque);
  if (snapshot != nullptr && all.live.count(snapshot) == 0) snapshot = nullptr;
  const auto saved = all.entries.find(oc->oformat);
  if (saved != all.entries.end()) return {snapshot, saved->second};
  return {nullptr, {oc->oformat->write_header, oc->oformat->write_packet}};  // just unhooked
}

int write_header(AVFormatContext* oc) {
  const Target target = find(oc);
  const int result = target.saved.write_header(oc);
  if (result >= 0 && target.snapshot != nullptr) target.snapshot->header_written(*oc);
  return result;
}

int write_packet(AVFormatContext* oc, AVPacket* packet) {
  const Target target = find(oc);
  const bool recorded = target.snapshot != nullptr && oc->pb != nullptr && packet != nullptr;
  if (recorded) target.snapshot->packet_coming(*oc, *packet, avio_tell(oc->pb));
  const int result = target.saved.write_packet(oc, packet);
  if (result < 0 && recorded) target.snapshot->packet_refused();
  return result;
}

// The muxers outlive this library when the host uses FFmpeg too: unloading must not leave entries
// behind that point into unmapped code.
struct Unhook {
  ~Unhook() {
    const std::unique_lock<RwLock> guard(registry().lock);
    auto& entries = registry().entries;
    for (auto entry = entries.begin(); entry != entries.end();) {
      auto* hooked = const_cast<AVOutputFormat*>(entry->first);
      // Somebody else's hook on top of ours still calls us, and must find what we replaced.
      if (hooked->write_packet != write_packet) {
        ++entry;
        continue;
      }
      hooked->write_header = entry->second.write_header;
      hooked->write_packet = entry->second.write_packet;
      entry = entries.erase(entry);
    }
  }
} g_unhook;

}  // namespace

void MuxerHooks::add(Snapshot& snapshot) {
  const std::unique_lock<RwLock> guard(registry().lock);
  registry().live.insert(&snapshot);
}

void MuxerHooks::remove(Snapshot& snapshot) {
  const std::unique_lock<RwLock> guard(registry().lock);
  registry().live.erase(&snapshot);
}

bool MuxerHooks::install(AVFormatContext& oc, Snapshot& snapshot) {
  const std::unique_lock<RwLock> guard(registry().lock);
  oc.opaque = &snapshot;
  AVOutputFormat& muxer = *oc.oformat;
  MuxerEntries& saved = registry().entries[&muxer];
  if (muxer.write_packet != write_packet) {
    saved = {muxer.write_header, muxer.write_packet};
    muxer.write_header = write_header;
    muxer.write_packet = write_packet;
    return true;
  }
  if (saved.write_packet == write_packet || saved.write_packet == nullptr) {
    ZEVA_LOG(kLogError, "write packet: unexpected error. (%p, %p)",
             reinterpret_cast<void*>(saved.write_packet), reinterpret_cast<void*>(&write_packet));
    return false;
  }
  ZEVA_LOG(kLogError, "write packet: already swapped.");
  return true;
}

}  // namespace zeva
