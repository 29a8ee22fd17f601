// Packet recording: encoded H.264 and AAC packets, or PCM, in; files and live streams out.
//
//   MovieInfo2 info{};
//   snprintf(info.url, sizeof info.url, "%s", "movie.mp4");
//   snprintf(info.moov, sizeof info.moov, "%s", "movie.mp4.index");
//   info.others[0] = "rtmp://127.0.0.1/live/camera";
//   info.vcodec = kPacketVideoH264;
//   info.acodec = kPacketAudioAac;
//   void* mux = ZEVA2_start(info, on_status, nullptr);          // null: on_status told why
//   while (next_packet(&p)) {
//     if (p.is_video) ZEVA2_write_video_packet(mux, p.data, p.nbytes, p.usec);
//     else            ZEVA2_write_audio_packet(mux, p.data, p.nbytes, p.usec);
//   }
//   ZEVA2_stop(&mux);                                           // every output is finished
//
// Time stamps are signed 64-bit microseconds of any steady clock. The first packet of each stream
// becomes time 0 of that stream, so begin sound and picture together. Packets are kept until five
// newer ones of their stream have come, but for no longer than half a second, and leave in the
// order of their stamps (equal stamps one microsecond apart). Jitter is smoothed to a tenth; a
// step, such as a gap or a new frame rate, is taken over at once. Times in the movie are never more
// than 0.1 s from the host's, and packets that go back further than that are left out
// (kZevaStatusPacketsLeftOut). Decoding times equal presentation times: pictures that are reordered
// (B-frames) need ZEVA2_write_video_packet2. ZevaOptions::common_start lets the streams begin at
// different times.
//
// One H.264 packet is one access unit, with the time of its picture. Parameter sets, SEI and
// delimiters may come as packets of their own, with any time: they join the next picture. Further
// slices of a picture join it as long as it is being sorted. Of several pictures in a packet, the
// further ones follow at the usual distance; so do several AAC frames. A packet that is none of
// this is left out with a log line.
//
// The outputs are opened once both streams are known: from the first key picture with its parameter
// sets and from the first AAC frame that can be decoded. Pictures before that key picture cannot be
// shown and are left out (kZevaStatusPacketsLeftOut), and the key picture keeps its time, however
// far away it is. An input that gets no packet for 3 s meanwhile is left out
// (kZevaStatusInputLeftOut), and the recording goes on with the other one; later writes to it
// return false. Once the outputs are open, neither stream waits for the other. At most 2000 packets
// a stream are kept, then the oldest are dropped.
//
// Threads: of one handle, each write function is called by one thread at a time; different ones
// (video here, sound there), pause, resume and the questions may overlap. Nothing may run during
// ZEVA2_stop. Handles are independent. Every function takes a null handle and returns its neutral
// value. No exception leaves any function.
//
// After a crash: an .mp4 without its trailer cannot be played by itself. With `moov` set, the index
// beside it tells where every packet lies. Packets and their index records are handed to the
// operating system together, at the first packet after 200 ms and whenever a line of records (960
// bytes) is full; what it has survives a crash of the program. So the packets of the last 200 ms
// are lost, and those of each stream that are being sorted: five at most (at 30 pictures a second
// another 200 ms), none older than half a second. While one stream is silent, the other one's
// packets wait another half a second for it; the latest packet of all has no record. A thread of
// each recording with an index has the disk keep both files about once a second, and all of the
// finished movie before ZEVA2_stop returns: a power failure costs about a second more, as far as
// the disk keeps what it says it has. Every output whose muxer is that of MP4 or a relative (.mov,
// .m4v, .3gp, a name without a known ending) can have the index; the first of them has it.
//
// Files: one that is there already keeps its bytes until the first packet of the recording is
// written, which is not before all outputs are open. A start that fails, and a recording of
// nothing, leave no file behind and change none. Two outputs, or an output and the index, that are
// one file are refused. On a full disk an output is finished with what fitted, where the file
// system can set space aside for its table; else the index brings it back. The report says which.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zeva/export.h"
#include "zeva/options.h"

// Values of MovieInfo2::vcodec and acodec; any other value means "no such stream".
enum : int32_t {
  kPacketVideoNone = 0,
  kPacketVideoH264 = 1,
};
enum : int32_t {
  kPacketAudioNone = 0,
  kPacketAudioAac = 1,  // AAC packets, each with its ADTS header (ISO/IEC 13818-7)
  kPacketAudioPcm = 2,  // PCM, encoded to AAC-LC by the library
};

// Plain data whose layout is part of the binary interface. ZEVA2_start copies the record and all it
// points to; the host may free or change everything once that call has returned. Texts are UTF-8
// and zero-terminated; one that fills its array without a terminator is cut there by one byte.
struct MovieInfo2 {
  char url[512];          // main output: a path or a live stream's URL, as in MovieInfo
  char moov[512];         // crash-safe index of the first MP4 among the outputs; empty for none
  char meta[256];         // "key:value;key:value", written into every container
  const char* others[4];  // further outputs; null entries are skipped

  int32_t vcodec;  // kPacketVideo...
  int32_t acodec;  // kPacketAudio...

  // Of the PCM, with kPacketAudioPcm only.
  int32_t sample_rate;        // Hz, one that AAC knows
  int32_t channels;           // 1..8
  const char* sample_format;  // "s16", "flt32" (interleaved) or "flt32p" (a plane a channel)
  int32_t bitrate;            // kbit/s of the AAC

  // H.264 parameter sets. With extradata_len or sps_len other than 0, video packets are taken as
  // length-prefixed (ISO/IEC 14496-15) and converted; otherwise they must be in the byte stream
  // format (Annex B: start codes, parameter sets in the stream). `sps` and `pps` are single NAL
  // units without start code or length, for packets with 4-byte lengths; `extradata` is a whole
  // AVC decoder configuration record and wins over them.
  const uint8_t* pps;
  const uint8_t* sps;
  int32_t pps_len;  // bytes
  int32_t sps_len;
  const uint8_t* extradata;
  int32_t extradata_len;

  uint8_t reserved[60];  // zero; not read
};

extern "C" {

// Reports of a recording. Code 0, "start success": the recording runs and takes packets; the
// outputs are not opened yet. Any other code ends it (writes then return false, ZEVA2_stop is still
// due), outputs already open are finished:
//   -10  the AAC encoder could not be made    (ZEVA2_start returns null)
//   -11  the parameter sets are unusable      (ZEVA2_start returns null)
//   -23  no usable packets came on any input
//   -33  no output URL at all, or a container refused its header (the text tells)
//   -32  an output could not be opened        -7  the index could not be created
//   -1 to -5  the AAC to Opus transcoder of an RTSP output could not be made
//   other negative codes: FFmpeg's, with its text
// An output that breaks later (disk full, peer gone, given up by the stop) ends the recording of
// all of them: writes return false, and the files are finished and playable. Once that is done,
// each output that was cut, or got no packet at all, is reported with FFmpeg's code and a text that
// names its URL in quotes (-101, -102 without a URL: pictures, sound could not be made ready for
// one of the outputs). When ZEVA2_stop has returned without any report, the system took all of
// every output. Called inside ZEVA2_start (codes -10, -11) or on the recording's worker thread,
// also while ZEVA2_stop waits for it but never after it has returned; `message` lives only during
// the call. Codes of 100 and more (zeva/status.h) do not end the recording and may come on other
// threads of the library. It must not call ZEVA2_stop.
typedef void (*ZEVA2_status_callback)(int code, const char* message, void* user);

// Starts a recording and returns its handle, which ZEVA2_stop frees; null on failure, with nothing
// left behind. `status_cb` and `user` may be null. Does not block: outputs are opened and written
// on threads of the library's own.
ZEVA_API void* ZEVA2_start(const MovieInfo2& info, ZEVA2_status_callback status_cb, void* user);

// The same with options (zeva/options.h), which may be null. Null `info`: null.
ZEVA_API void* ZEVA2_start_with(const MovieInfo2* info, const ZevaOptions* options,
                                ZEVA2_status_callback status_cb, void* user);

// Writes what is still held back, finishes every output, frees everything and sets *handle to null.
// `handle` and *handle may be null. Blocks until all outputs are finished: files take as long as
// the disk needs; all live streams together have 2 s, whatever waits for them, also those that are
// still connecting or whose server's name is looked up. An input that never got a packet does not
// hold it up. Refused inside the status callback; *handle is kept then.
ZEVA_API void ZEVA2_stop(void** handle);

// Cuts the time between pause and resume out of both streams. Packets offered meanwhile are still
// recorded (stop offering them, and go on with a key frame); PCM is dropped. A second pause
// restarts the pause. Resume: false unless paused. Null handle: false.
ZEVA_API bool ZEVA2_pause(void* handle);
ZEVA_API bool ZEVA2_resume(void* handle);
ZEVA_API bool ZEVA2_is_paused(void* handle);

// Movie time in microseconds of the latest video packet (of the latest sound before any); -1 for a
// null handle.
ZEVA_API int64_t ZEVA2_movie_time(void* handle);

// One packet at time `usec`. The bytes are copied before the call returns and stay the host's. Null
// `data` with `nbytes` 0 gives out what is held back for sorting. True when the packet was taken
// (also when it is unusable, or the queue is full and its oldest packet had to be dropped for it;
// the log tells); false when refused: the recording has ended, or has no such stream, or goes on
// without it, or takes PCM, or the packet is not length-prefixed as declared. A full queue is
// waited for at most 50 ms; nothing else blocks.
ZEVA_API bool ZEVA2_write_video_packet(void* handle, void* data, int nbytes, int64_t usec);
ZEVA_API bool ZEVA2_write_audio_packet(void* handle, void* data, int nbytes, int64_t usec);

// One picture of a stream whose pictures are stored in another order than they are shown
// (B-frames): `pts_us` is when it is shown, `dts_us`, which grows from packet to packet and is not
// after `pts_us`, when it is decoded. Packets come in decoding order. Both times are kept as they
// are, without smoothing; a packet whose times are not so is left out (kZevaStatusPacketsLeftOut).
// Time 0 is when the first packet is shown; it is decoded before. Otherwise as
// ZEVA2_write_video_packet; a recording uses one of the two.
ZEVA_API bool ZEVA2_write_video_packet2(void* handle, const void* data, int32_t nbytes,
                                        int64_t pts_us, int64_t dts_us);

// `nb_samples` per channel in the declared format: one plane for the interleaved formats, one a
// channel for "flt32p" (at most four). Time is counted in samples from the first call's `usec` on;
// later ones only move ZEVA2_movie_time, so the PCM must be without gaps. The first AAC packet
// holds the encoder's delay and lies before that time, so that what is heard is in step with the
// pictures; outputs without negative times begin with it, and their pictures later by as much. Null
// `planes` or `nb_samples` below 1 encodes and gives out all that is held back. The samples are
// copied and encoded before the call returns. False when refused: ended, paused, no sound or no PCM
// declared, the recording goes on without sound, or the encoder failed.
ZEVA_API bool ZEVA2_write_audio_pcm(void* handle, uint8_t* const* planes, int nb_samples,
                                    int64_t usec);

// How many packets wait inside, for hosts that are not live. The write functions never wait for a
// slow output, and a full input drops; so a host that has its packets faster than they can be
// written asks here, and writes while few wait: less than 2000 in `video` and `audio`, and as many
// in `outputs` as it wants to see in memory. `video` and `audio`: packets that were not handed to
// the outputs yet, those held back for sorting not counted. `outputs`: packets not written yet, of
// the output that has most of them; -1 until all outputs are open. The pointers may be null. False,
// with nothing stored, when the recording takes no more: a null handle, ended, or an output broke.
// Does not block.
ZEVA_API bool ZEVA2_backlog(void* handle, int32_t* video, int32_t* audio, int32_t* outputs);

}  // extern "C"

static_assert(offsetof(MovieInfo2, moov) == 512);
static_assert(offsetof(MovieInfo2, meta) == 1024);
static_assert(offsetof(MovieInfo2, others) == 1280);
static_assert(offsetof(MovieInfo2, vcodec) == 1312);
static_assert(offsetof(MovieInfo2, acodec) == 1316);
static_assert(offsetof(MovieInfo2, sample_rate) == 1320);
static_assert(offsetof(MovieInfo2, channels) == 1324);
static_assert(offsetof(MovieInfo2, sample_format) == 1328);
static_assert(offsetof(MovieInfo2, bitrate) == 1336);
static_assert(offsetof(MovieInfo2, pps) == 1344);
static_assert(offsetof(MovieInfo2, sps) == 1352);
static_assert(offsetof(MovieInfo2, pps_len) == 1360);
static_assert(offsetof(MovieInfo2, sps_len) == 1364);
static_assert(offsetof(MovieInfo2, extradata) == 1368);
static_assert(offsetof(MovieInfo2, extradata_len) == 1376);
static_assert(sizeof(MovieInfo2) == 1440);
