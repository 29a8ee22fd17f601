// The gate before the queue of a stream that does not keep up.
#pragma once

#include <cstdint>

namespace zeva {

// A picture that is dropped takes those along that refer to it, up to the next key picture: from
// there on the stream is whole again. Sound goes on while there is room. Without a connection only
// the packets from the newest key picture on are kept, so that the stream can begin at once when
// the connection is there; before the first one, everything from the beginning on, while it fits.
//
// Not synchronised: the owner's lock guards gate and queue together.
class DropGate {
 public:
  struct Packet {
    bool picture;  // of a recording without pictures: never
    bool key;      // the stream can begin with it
  };
  enum class Answer {
    kTake,
    kDrop,
    kTakeAlone,  // after dropping what is queued
    kDropAll,    // it and what is queued
  };

  // With a connection, or else at the beginning of a recording that waits for its first one.
  explicit DropGate(bool connected) : state(connected ? State::kFlowing : State::kBeginning) {}

  // `full`: nothing more fits into the queue; `roomy`: it has drained enough to begin again.
  Answer admit(const Packet& packet, bool full, bool roomy);

  // The queue is void.
  void disconnect();
  // False when the stream goes on from its very beginning; else it begins anew, with a key picture.
  bool connect();

  bool is_flowing() const { return state == State::kFlowing; }
  bool is_dropping() const { return state == State::kDropping; }
  // Of these, those of a connection that no key picture has come for yet.
  bool is_beginning() const { return beginning; }
  bool is_connected() const { return is_flowing() || is_dropping(); }
  // True once for every time that the stream waits for a key picture.
  bool wants_key();

 private:
  enum class State {
    kFlowing,
    kDropping,   // up to a key picture
    kBeginning,  // no connection yet; everything is queued
    kEmpty,      // no connection; up to a key picture nothing is worth keeping
    kReady,      // no connection; the queue begins with a key picture
  };
  Answer admit_connected(const Packet& packet, bool full, bool roomy);
  Answer admit_waiting(const Packet& packet, bool full);

  State state;
  bool beginning = false;
  bool key_wanted = false;
  bool key_asked = false;
};

}  // namespace zeva
