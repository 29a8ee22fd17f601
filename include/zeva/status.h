// Reports that do not end a recording: codes of both interfaces' status callbacks beside the ones
// that the callbacks' own headers list. All are 100 or more; the text that comes with one names the
// file or output. Each is reported once for every change of state, never for every packet.
#pragma once

#include <stdint.h>

enum {
  // A live stream that need not be there at the start is being waited for. The text names the
  // server and, once there is one, the error.
  kZevaStatusStreamWaiting = 100,
  // It takes packets: for the first time, or again after kZevaStatusStreamDropping.
  kZevaStatusStreamLive = 101,
  // It does not keep up: pictures are dropped up to the next key picture.
  kZevaStatusStreamDropping = 102,
  // It broke and is tried again.
  kZevaStatusStreamReconnecting = 103,
  // It is there again, from a key picture on.
  kZevaStatusStreamBack = 104,
  // An output that is not required has failed for good; the recording goes on without it.
  kZevaStatusOutputGivenUp = 105,
  // A file was finished properly since less than its policy's `keep_free_bytes` would have been
  // left of its disk. The other outputs go on.
  kZevaStatusFileFinishedEarly = 110,

  // The path of a movie or index does not lead to the file that is written any more: it was
  // deleted, renamed or replaced by another one while it was recorded. The recording goes on in the
  // file that it has open: a renamed movie is finished under its new name, a deleted one is lost
  // once it is closed. Once for each file.
  kZevaStatusFileGone = 111,

  // The crash-safe index could not be created. The movie is recorded, but a crash loses it.
  kZevaStatusIndexMissing = 120,
  // The index could not be written, for example on a full disk. What a crash would lose grows until
  // kZevaStatusIndexBack.
  kZevaStatusIndexFailing = 121,
  // The index is written again. The packets in between have no record; `zeva inspect` and the
  // repair name the hole.
  kZevaStatusIndexBack = 122,
  // The disk refused to keep what it was given. What was written since the sync before may be lost
  // in a power failure, and the promise about power failures no longer holds for this recording.
  kZevaStatusSyncFailing = 123,

  // The encoder refused a picture or sound, for example for lack of memory. The write call that
  // met it returned false.
  kZevaStatusPictureRefused = 130,
  kZevaStatusSoundRefused = 131,
  // Packets are left out: their time goes back by more than 0.1 s behind what is recorded, until
  // their stamps have caught up; they are shown before they are decoded; or they came before the
  // first key picture. The text tells.
  kZevaStatusPacketsLeftOut = 132,
  // Nothing usable came on one of the two inputs of a packet recording while it was being opened.
  // The outputs are opened without it, and writes to it return false.
  kZevaStatusInputLeftOut = 133,
  // The host writes packets to such an input after all. They are not recorded: only a new recording
  // can have the stream.
  kZevaStatusInputLate = 134,
};
