#include "output_queue.h"

#include <algorithm>

#include "av_error.h"
#include "av_handles.h"

namespace zeva {
namespace {

// Half of what is kept has gone to the server: the stream can go on.
bool has_room_again(const PacketQueue::Backlog& backlog, const PacketQueue::Limits& limits) {
  return backlog.packets <= limits.packets / 2 && backlog.us <= limits.us / 2 &&
         backlog.bytes <= limits.bytes / 2;
}

int64_t time_of(const AVPacket& packet, AVRational time_base) {
  const int64_t time = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  return time != AV_NOPTS_VALUE ? av_rescale_q(time, time_base, kMicroseconds) : 0;
}

}  // namespace

OutputQueue::OutputQueue(const OutputPolicy& policy, OutputMonitor& monitor, bool waits)
    : policy(policy), monitor(monitor), flowing(!waits), gate(!waits) {}

const OutputQueue::Stream* OutputQueue::stream(int index) const {
  const auto number = static_cast<size_t>(index);
  return index >= 0 && number < streams.size() ? &streams[number] : nullptr;
}

int OutputQueue::put(const AVPacket& packet, bool interleave) {
  const Stream* of = stream(packet.stream_index);
  if (of == nullptr) return -1;
  const int64_t time_us = time_of(packet, of->time_base);
  const bool drops = policy.when_full == OutputPolicy::WhenFull::kDrop || !flowing;
  return drops ? put_or_drop(packet, time_us) : put_or_wait(packet, time_us, interleave);
}

int OutputQueue::put_or_wait(const AVPacket& packet, int64_t time_us, bool interleave) {
  const PacketPtr reference(av_packet_clone(&packet));
  if (reference == nullptr) return -1;
  PacketQueue::Limits limits = policy.limits;
  if (interleave && limits.packets != UINT32_MAX) limits.packets += policy.interleave_allowance;
  const bool waits = policy.when_full == OutputPolicy::WhenFull::kWait;
  const int result = packets.put_bounded(reference.get(), limits, waits, time_us);
  if (result != -2) return result;
  overflowed = true;
  abort();
  return -1;
}

void OutputQueue::abort() {
  packets.abort();
  drop_all();
}

int OutputQueue::put_or_drop(const AVPacket& packet, int64_t time_us) {
  int result = 0;
  bool key_wanted = false;
  {
    const std::lock_guard<std::mutex> lock(gate_mutex);
    const Stream& of = streams[static_cast<size_t>(packet.stream_index)];
    const bool has_pictures = std::any_of(streams.begin(), streams.end(),
                                          [](const Stream& stream) { return stream.pictures; });
    const bool key = !has_pictures || (of.pictures && (packet.flags & AV_PKT_FLAG_KEY) != 0);
    // The time that was dropped counts: else what is queued could last longer than is to be kept.
    const PacketQueue::Backlog backlog = packets.backlog_until(time_us);
    const DropGate::Answer answer = gate.admit({of.pictures, key}, backlog.reaches(policy.limits),
                                               has_room_again(backlog, policy.limits));
    const bool takes = answer == DropGate::Answer::kTake || answer == DropGate::Answer::kTakeAlone;
    if (answer == DropGate::Answer::kTakeAlone || answer == DropGate::Answer::kDropAll) drop_all();
    if (takes) {
      PacketPtr reference(av_packet_clone(&packet));
      result = reference != nullptr ? packets.put(reference.get(), time_us) : -1;
    } else {
      drop(packet);
    }
    note_phase();
    key_wanted = gate.wants_key();
  }
  ask_if_wanted(key_wanted);
  return result;
}

void OutputQueue::drop(const AVPacket& packet) {
  const Stream* of = stream(packet.stream_index);
  monitor.count_dropped(of != nullptr && of->pictures);
}

void OutputQueue::drop_all() {
  packets.clear([this](const AVPacket& packet) { drop(packet); });
}

// A connection is live once the picture has come that it begins with.
void OutputQueue::note_phase() {
  flowing = gate.is_flowing();
  if (flowing) monitor.enter(kZevaOutputLive);
  if (gate.is_dropping() && !gate.is_beginning()) monitor.enter(kZevaOutputDropping);
}

void OutputQueue::ask_if_wanted(bool wanted) const {
  if (wanted && ask_for_key) ask_for_key();
}

bool OutputQueue::connect() {
  bool anew = false;
  bool key_wanted = false;
  {
    const std::lock_guard<std::mutex> lock(gate_mutex);
    anew = gate.connect();
    note_phase();
    key_wanted = gate.wants_key();
  }
  ask_if_wanted(key_wanted);
  return anew;
}

void OutputQueue::disconnect() {
  bool key_wanted = false;
  {
    const std::lock_guard<std::mutex> lock(gate_mutex);
    gate.disconnect();
    flowing = false;
    drop_all();
    key_wanted = gate.wants_key();
  }
  ask_if_wanted(key_wanted);
}

}  // namespace zeva
