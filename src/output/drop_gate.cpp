#include "drop_gate.h"

#include <utility>

namespace zeva {

DropGate::Answer DropGate::admit(const Packet& packet, bool full, bool roomy) {
  if (packet.key && is_connected()) beginning = false;
  if (packet.key) key_wanted = key_asked = false;
  return is_connected() ? admit_connected(packet, full, roomy) : admit_waiting(packet, full);
}

DropGate::Answer DropGate::admit_connected(const Packet& packet, bool full, bool roomy) {
  if (state == State::kDropping) {
    if (packet.key && roomy) {
      state = State::kFlowing;
      return Answer::kTake;
    }
    key_wanted = key_wanted || roomy;
    return packet.picture || full ? Answer::kDrop : Answer::kTake;
  }
  if (!full) return Answer::kTake;
  if (packet.picture) state = State::kDropping;
  return Answer::kDrop;
}

DropGate::Answer DropGate::admit_waiting(const Packet& packet, bool full) {
  if (state == State::kBeginning && !full) return Answer::kTake;
  if (state != State::kBeginning && packet.key) {
    state = State::kReady;
    return Answer::kTakeAlone;
  }
  if (state == State::kEmpty) return Answer::kDrop;
  if (!full) return Answer::kTake;
  state = packet.key ? State::kReady : State::kEmpty;
  return packet.key ? Answer::kTakeAlone : Answer::kDropAll;
}

void DropGate::disconnect() {
  state = State::kEmpty;
  key_wanted = true;
}

bool DropGate::connect() {
  const bool anew = state != State::kBeginning;
  if (state == State::kEmpty) key_wanted = true;
  beginning = state == State::kEmpty;
  state = beginning ? State::kDropping : State::kFlowing;
  return anew;
}

bool DropGate::wants_key() {
  const bool wanted = std::exchange(key_wanted, false) && !key_asked;
  if (wanted) key_asked = true;
  return wanted;
}

}  // namespace zeva
