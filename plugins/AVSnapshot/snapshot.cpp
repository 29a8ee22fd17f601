#include "snapshot.h"

#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>

#include "clock.h"
#include "files.h"
#include "immortal.h"
#include "logger.h"
#include "output_url.h"
#include "rw_lock.h"

namespace zeva {
namespace {

using WriteHeader = int (*)(AVFormatContext*);
using WritePacket = int (*)(AVFormatContext*, AVPacket*);

struct MuxerEntries {
  WriteHeader write_header = nullptr;
  WritePacket write_packet = nullptr;
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

}  // namespace

// The functions put into the muxer. Contexts that no live snapshot is attached to pass through.
struct SnapshotHooks {
  struct Target {
    Snapshot* snapshot;
    MuxerEntries saved;
  };

  static Target find(const AVFormatContext* oc) {
    Registry& all = registry();
    const std::shared_lock<RwLock> guard(all.lock);
    auto* snapshot = static_cast<Snapshot*>(oc->opaque);
    if (snapshot != nullptr && all.live.count(snapshot) == 0) snapshot = nullptr;
    const auto saved = all.entries.find(oc->oformat);
    if (saved != all.entries.end()) return {snapshot, saved->second};
    return {nullptr, {oc->oformat->write_header, oc->oformat->write_packet}};  // just unhooked
  }

  static int write_header(AVFormatContext* oc) {
    const Target target = find(oc);
    const int result = target.saved.write_header(oc);
    if (result >= 0 && target.snapshot != nullptr) target.snapshot->write_stream_lines(*oc);
    return result;
  }

  static int write_packet(AVFormatContext* oc, AVPacket* packet) {
    const Target target = find(oc);
    if (target.snapshot != nullptr && oc->pb != nullptr && packet != nullptr) {
      const int64_t position = avio_tell(oc->pb);
      if (target.snapshot->packets_seen > 0) {
        target.snapshot->record_previous(*oc, *packet, position);
      }
      target.snapshot->remember(*packet, position);
    }
    return target.saved.write_packet(oc, packet);
  }
};

namespace {

// The muxers outlive this library when the host uses FFmpeg too: unloading must not leave entries
// behind that point into unmapped code.
struct Unhook {
  ~Unhook() {
    const std::unique_lock<RwLock> guard(registry().lock);
    auto& entries = registry().entries;
    for (auto entry = entries.begin(); entry != entries.end();) {
      auto* hooked = const_cast<AVOutputFormat*>(entry->first);
      // Somebody else's hook on top of ours still calls us, and must find what we replaced.
      if (hooked->write_packet != SnapshotHooks::write_packet) {
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

Snapshot::Snapshot(Report) {
  const std::unique_lock<RwLock> guard(registry().lock);
  registry().live.insert(this);
}

Snapshot::~Snapshot() {
  {
    const std::unique_lock<RwLock> guard(registry().lock);
    registry().live.erase(this);
  }
  if (index_file == nullptr) return;
  write_line_text();
  fclose(index_file);
  disk.end();  // with the movie's trailer, which is written by now
}

bool Snapshot::open(const char* path) {
  if (index_file != nullptr) {
    ZEVA_LOG(kLogError, "already opened !");
    return false;
  }
  index_file = open_file(path, "wt");
  if (index_file == nullptr) return false;
  index_path = path;
  return true;
}

bool Snapshot::attach(AVFormatContext* oc) {
  if (index_file == nullptr) {
    ZEVA_LOG(kLogError, "---> moov: fp is nullptr!");
    return false;
  }
  if (oc == nullptr) {
    ZEVA_LOG(kLogError, "---> moov: oc==null");
    return false;
  }
  if (oc->pb == nullptr) {
    ZEVA_LOG(kLogError, "---> moov: pb==null, not support");
    return false;
  }
  const std::unique_lock<RwLock> guard(registry().lock);
  oc->opaque = this;
  AVOutputFormat& muxer = *oc->oformat;
  MuxerEntries& saved = registry().entries[&muxer];
  if (muxer.write_packet != SnapshotHooks::write_packet) {
    saved = {muxer.write_header, muxer.write_packet};
    muxer.write_header = SnapshotHooks::write_header;
    muxer.write_packet = SnapshotHooks::write_packet;
    return true;
  }
  if (saved.write_packet == SnapshotHooks::write_packet || saved.write_packet == nullptr) {
    ZEVA_LOG(kLogError, "write packet: unexpected error. (%p, %p)",
             reinterpret_cast<void*>(saved.write_packet),
             reinterpret_cast<void*>(&SnapshotHooks::write_packet));
    return false;
  }
  ZEVA_LOG(kLogError, "write packet: already swapped.");
  return true;
}

void Snapshot::write_stream_lines(const AVFormatContext& oc) {
  fputs(index_header_line().c_str(), index_file);
  std::string line;
  for (unsigned i = 0; i < oc.nb_streams; ++i) {
    const AVStream& stream = *oc.streams[i];
    const AVMediaType type = stream.codecpar->codec_type;
    if (type == AVMEDIA_TYPE_AUDIO) audio_stream_index = stream.index;
    if (type == AVMEDIA_TYPE_VIDEO) video_stream_index = stream.index;
    // A stream of another type repeats the line before it, so that readers which count lines see
    // one for every stream.
    const std::string built = index_stream_line(stream);
    if (!built.empty()) line = built;
    fprintf(index_file, "%s\n", line.c_str());
    fflush(index_file);
  }
  disk.start({file_path(oc.url != nullptr ? oc.url : ""), index_path});
}

void Snapshot::record_previous(const AVFormatContext& oc, const AVPacket& current,
                               int64_t position) {
  IndexRecord record;
  record.stream_index = previous.stream_index;
  record.position = packets_seen == 1 ? previous.position : 0;
  record.size = static_cast<int32_t>(static_cast<uint32_t>(position) -
                                     static_cast<uint32_t>(previous.position));
  record.pts_delta = previous.pts_delta;
  record.dts_delta = previous.dts_delta == previous.pts_delta ? 0 : previous.dts_delta;
  // Readers restore the frame size of an audio record without a duration. That the test looks at
  // the packet behind the recorded one is deliberate: a video record of that duration reads as 0.
  const bool implied = is_audio(current) &&
                       previous.duration == oc.streams[current.stream_index]->codecpar->frame_size;
  record.duration = implied ? 0 : previous.duration;
  record.key = previous.key;
  line_length += format_index_record(record, line_buffer + line_length);
  hand_over(oc);
}

void Snapshot::hand_over(const AVFormatContext& oc) {
  const bool line_full = line_length > kIndexLineBytes;
  const int64_t now = steady_us();
  if (!line_full && now < next_hand_over) return;
  next_hand_over = now + kIndexHandOverMs * 1000;
  // The movie's bytes go first: a record must not tell of bytes that died in FFmpeg's buffer.
  avio_flush(oc.pb);
  write_line_text();
  if (line_full) {
    fputs("\n", index_file);
    line_length = 0;
    line_written = 0;
  }
  fflush(index_file);
  disk.request();
}

void Snapshot::remember(const AVPacket& packet, int64_t position) {
  ++packets_seen;
  LastTimes& last = is_audio(packet) ? last_audio : last_video;
  previous.stream_index = packet.stream_index;
  previous.key = (packet.flags & AV_PKT_FLAG_KEY) != 0 ? 1 : 0;
  previous.position = position;
  previous.duration = packet.duration;
  previous.pts_delta =
      static_cast<int64_t>(static_cast<uint64_t>(packet.pts) - static_cast<uint64_t>(last.pts));
  previous.dts_delta =
      static_cast<int64_t>(static_cast<uint64_t>(packet.dts) - static_cast<uint64_t>(last.dts));
  last = {packet.pts, packet.dts};
}

void Snapshot::write_line_text() {
  fwrite(line_buffer + line_written, 1, static_cast<size_t>(line_length - line_written),
         index_file);
  line_written = line_length;
}

}  // namespace zeva
