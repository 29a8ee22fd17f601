// One output's behaviour when its disk or server cannot keep up, and the state of outputs and
// recording. Plain C for both interfaces; a ZevaOutputPolicy is given to the start with
// ZevaOptions (zeva/options.h), the other two records are filled in while a recording runs.
//
//   ZevaOutputPolicy live;
//   ZevaOutputPolicy_init(&live);
//   live.required = kZevaNo;                 /* the file goes on without the server */
//   live.when_full = kZevaFullDrop;          /* nothing waits for it */
//   live.keep_us = 3000000;
//   live.reconnect_first_us = 250000;        /* it comes back */
//   live.reconnect_longest_us = 2000000;
//   live.reconnect_total_us = -1;
//   const ZevaOutputPolicy* policies[] = {NULL, &live};  /* url: a file, other_urls[0]: a server */
//   options.policies = policies;
//   options.policy_count = 2;
//
// Records are versioned by their size, as ZevaOptions is: the library fills in no more than
// `struct_size` says, and takes 0 for what an older host's record lacks. Times are microseconds,
// sizes bytes.
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <string.h>

#include "zeva/export.h"

// `when_full` of a policy.
enum {
  kZevaFullDefault = 0,  // classic recordings and files wait, streams of packets drop
  kZevaFullWait = 1,     // the host's write call waits for room
  kZevaFullDrop = 2,     // pictures are dropped up to the next key picture, sound while it is full
  kZevaFullFail = 3,     // the output fails
};

// Answers where 0 leaves it to the library.
enum {
  kZevaDefault = 0,
  kZevaYes = 1,
  kZevaNo = 2,
};

typedef struct ZevaOutputPolicy {
  uint32_t struct_size;  // bytes; of the host's own record

  // The fate of a packet when the output's queue is full.
  int32_t when_full;
  // The queue is full when what waits in it lasts `keep_us` or takes `keep_bytes`; 0 for both: the
  // defaults (classic: 60 packets, 1000 more while packets wait to be interleaved; packets: 10 s
  // and 64 MiB).
  int64_t keep_us;
  int64_t keep_bytes;

  // kZevaYes: a failure of the output, also of its opening, ends the recording or refuses its
  // start. kZevaNo: the output is left out, and the others go on; a live stream is opened by a
  // thread of its own, so that the recording starts at once. Default: a failed opening refuses the
  // start; a failure while recording leaves the output out of a classic recording, and ends one of
  // packets.
  int32_t required;

  // A live stream that breaks, or with `required` kZevaNo cannot be opened, is tried again: twice
  // after `reconnect_first_us`, twice after double that, and so on up to `reconnect_longest_us`,
  // until no connection came about for `reconnect_total_us` (-1: for ever). `reconnect_first_us` 0:
  // never. A stream that comes back begins with a key picture, at time 0; what came between is
  // dropped and counted.
  int64_t reconnect_first_us;
  int64_t reconnect_longest_us;
  int64_t reconnect_total_us;

  // A file: it is finished properly as soon as less than this would be left of its disk, which
  // kZevaStatusFileFinishedEarly tells. 0: when the disk is full.
  int64_t keep_free_bytes;
} ZevaOutputPolicy;

// Makes a policy of defaults.
static inline void ZevaOutputPolicy_init(ZevaOutputPolicy* policy) {
  memset(policy, 0, sizeof *policy);
  policy->struct_size = (uint32_t)sizeof *policy;
}

// `phase` of an output.
enum {
  kZevaOutputOpening = 1,       // not open yet; of a stream also: waits for its server
  kZevaOutputLive = 2,          // takes packets
  kZevaOutputDropping = 3,      // does not keep up: pictures are dropped up to a key picture
  kZevaOutputReconnecting = 4,  // broke, and is tried again
  kZevaOutputGivenUp = 5,       // failed for good
  kZevaOutputFinished = 6,      // ended properly
};

typedef struct ZevaOutputState {
  uint32_t struct_size;  // bytes; set by the host
  int32_t phase;
  int32_t last_error;     // FFmpeg's code, 0 for none
  int32_t reconnects;     // connections that came about again
  int64_t last_error_us;  // ago; -1 for none

  int64_t packets_written;
  int64_t bytes_written;
  int64_t packets_dropped;  // pictures and sound
  int64_t pictures_dropped;
  int64_t written_us;  // movie time at which the last written packet ends

  int64_t queued_packets;
  int64_t queued_us;  // how long they last
  int64_t queued_bytes;

  int64_t bits_per_second;  // written during the last two seconds
  int64_t synced_us;        // movie time that a power failure would leave; -1: no index, no syncs
  int64_t disk_free_bytes;  // of the file's disk, up to a second old; -1 for streams
} ZevaOutputState;

static inline void ZevaOutputState_init(ZevaOutputState* state) {
  memset(state, 0, sizeof *state);
  state->struct_size = (uint32_t)sizeof *state;
}

typedef struct ZevaStatistics {
  uint32_t struct_size;  // bytes; set by the host
  int32_t outputs;

  int64_t pictures_given;    // calls by the host
  int64_t pictures_refused;  // of these, for whatever reason
  int64_t pictures_encoded;  // classic: come out of the encoder (the files'); of packets: taken
  int64_t sound_us_given;    // silence that the host asked for included; 0 for AAC packets
  int64_t sound_us_encoded;

  // Classic recordings, of the latest 512 pictures that were encoded: their conversion, encoding
  // (of both encoders where streams have their own), and the host's whole call, in which filters
  // and waiting for room count as well. p99: 99 of 100 take no longer.
  int64_t convert_mean_us;
  int64_t convert_p99_us;
  int64_t encode_mean_us;
  int64_t encode_p99_us;
  int64_t call_mean_us;
  int64_t call_p99_us;

  // Movie time up to which sound has come out of the encoders, less that of pictures; 0 until both
  // have. What an encoder holds back counts as not there.
  int64_t sound_minus_picture_us;
  int64_t crash_cost_us;    // what a crash of the program would cost now; -1: no index
  int32_t bit_rate;         // the encoder's setting now, bits per second; 0: none, or packets
  int32_t stream_bit_rate;  // of the streams' own encoder; 0 without one
} ZevaStatistics;

static inline void ZevaStatistics_init(ZevaStatistics* statistics) {
  memset(statistics, 0, sizeof *statistics);
  statistics->struct_size = (uint32_t)sizeof *statistics;
}

#ifdef __cplusplus
extern "C" {
#endif

// The state of output number `output`, 0 being the main one, then the further ones in their order.
// Never blocks; any thread, from the start's return until the stop's call. False for a null handle
// or record, a record without its size, or an output that there is not.
ZEVA_API bool ZEVA_output_state(void* handle, int32_t output, ZevaOutputState* state);
ZEVA_API bool ZEVA2_output_state(void* handle, int32_t output, ZevaOutputState* state);

// Figures of the whole recording, likewise.
ZEVA_API bool ZEVA_statistics(void* handle, ZevaStatistics* statistics);
ZEVA_API bool ZEVA2_statistics(void* handle, ZevaStatistics* statistics);

#ifdef __cplusplus
}
#endif
