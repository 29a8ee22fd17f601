// One input of a packet recording, as the worker sees it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "av_handles.h"
#include "input_queue.h"
#include "pts_smoother.h"
#include "stream_probe.h"

namespace zeva {

// Makes FFmpeg's packets of those that the host wrote. First it waits until the stream can be
// known; what comes before cannot be decoded and is left out. Nothing here blocks. Owns the
// packets that are ready; borrows the queue. Used by the worker.
class InputSlot {
 public:
  // Hears of packets that are left out; `code` is one of zeva/status.h.
  using Tell = std::function<void(int32_t code, const std::string& text)>;

  InputSlot(const char* name, InputQueue* queue, Tell tell);
  virtual ~InputSlot() = default;
  InputSlot(const InputSlot&) = delete;
  InputSlot& operator=(const InputSlot&) = delete;

  const char* name() const { return input_name; }
  // Null until it is known.
  AVStream* stream() const { return probe.stream(); }

  // Looks at what has come. True as soon as the stream is known, or will not be: the input has
  // ended, has had no packet for 3 s, or nothing but garbage.
  bool try_open();
  // The reason why it is not known.
  const Status& failure() const { return opening; }

  // The next packet, null when there is none. Stays the slot's until `pop`.
  AVPacket* front();
  void pop() { ready.pop_front(); }
  // True when there will be no more.
  bool has_ended() const { return ended && ready.empty(); }

  // In milliseconds: how long nothing can happen here unless the host writes.
  int64_t idle_ms();

 protected:
  // Makes packets of one of the host's. The bytes have FFmpeg's padding behind them.
  virtual void unpack(const AVPacket& packet, const PacketTimes& times) = 0;

  // Takes the stream's parameters from its first packet; false when they are not there.
  bool learn(const uint8_t* data, size_t size_bytes);
  // One packet of the outputs: some bytes of a packet that owns them.
  struct Part {
    const AVPacket& packet;
    const uint8_t* data;
    size_t size_bytes;
    bool key;
  };
  // Stamps a part and makes it ready, or leaves it out.
  void give_out(const Part& part, const PacketTimes& times);
  // The same with a time made up: the host's packet held more than one picture.
  void give_out_behind(const Part& part, const PacketTimes& times);
  // A packet that no output could take.
  void refuse(const AVPacket& packet, const char* what);

  const Tell tell;

 private:
  bool unpack_next();
  bool give_up(int32_t code);
  std::optional<int64_t> place(const PacketTimes& times);
  void give_out_at(std::optional<int64_t> dts, const Part& part, const PacketTimes& times);

  const char* const input_name;
  InputQueue* const queue;
  StreamProbe probe;
  Status opening;
  std::deque<PacketPtr> ready;
  bool ended = false;
  int64_t last_packet_us = 0;  // of the steady clock
  int64_t refused_bytes = 0;   // until the stream is known
  int refused = 0;

  // Of the packets given out, in microseconds.
  PtsSmoother smoother;
  std::optional<int64_t> last_dts;
  bool leaving_out = false;  // the last packet was left out; told once, not for every packet
};

}  // namespace zeva
