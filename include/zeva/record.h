// Classic recording: raw pictures and sound in, finished movies out.
//
//   MovieInfo info{};  /* see zeva/movie_info.h */
//   void* rec = ZEVA_start(info, on_status, nullptr, nullptr, false);
//   if (!ZEVA_get_mInfo(rec, &info)) { ZEVA_stop(&rec); return 1; }  // on_status told why
//   while (capturing) {
//     ZEVA_write_video_bgra(rec, bgra, stride * height, ZEVA_current_sys_usec(), stride);
//     ZEVA_write_audio_pcm(rec, pcm, pcm_bytes, ZEVA_current_sys_usec());
//   }
//   ZEVA_stop(&rec);                                                 // the movie is finished
//
// Time stamps are microseconds of ZEVA_current_sys_usec (any other steady microsecond clock does,
// as long as the recording is never paused). The first one offered, accepted or not, becomes movie
// time 0. A video frame whose time, in units of 1/fps (or of the options' rate, or of 1/90000 s at
// a variable rate), does not grow is dropped. Sound is counted by its samples, from the first
// sound's own stamp on. A stamp that is half a second or more off the count moves it at once; one
// side of it by more than 20 ms for a whole second, by what was the least of that second, is made
// up with silence or by leaving samples out: a lost buffer, or a sound card with a clock of its
// own.
//
// Threads: of one handle, pictures are written by one thread at a time and sound by one, which may
// be another; neither waits for the other's encoding. The testing frames of a stream belong to the
// thread that writes it. All other functions may be called from any thread. No call of a handle
// runs beside its ZEVA_stop. Several handles are independent. Every function takes a null handle
// and then returns its neutral value. No exception leaves any function.
//
// After a crash: an .mp4 without its trailer cannot be played by itself. With `moov_url` set, the
// index beside it tells where every packet lies. Packets and their index records are handed to the
// operating system together, at the first packet after 200 ms and whenever a line of records (960
// bytes) is full; what it has survives a crash of the program. So that packets of the last 200 ms
// are lost, and pictures that were still in the encoder (with the presets' look-ahead up to half a
// second). While one stream is silent, the other one's packets wait another half a second for it;
// the latest packet of all has no record. A thread of each recording with an index has the disk
// keep both files about once a second, and all of the finished movie before ZEVA_stop returns: a
// power failure costs about a second more, as far as the disk keeps what it says it has. Every
// output whose muxer is that of MP4 or a relative (.mov, .m4v, .m4a, .3gp, a name without a known
// ending) can have the index; the first of them has it.
//
// Files: one that is there already keeps its bytes until the first packet of the recording is
// written. A start that fails, and a recording of nothing, leave no file behind and change none.
// Two outputs, or an output and the index, that are one file are refused. On a full disk an output
// is finished with what fitted, where the file system can set space aside for its table; else the
// index brings it back. The report says which. The other outputs go on.
#pragma once

#include <cstdint>

#include "zeva/export.h"
#include "zeva/movie_info.h"
#include "zeva/options.h"

struct AVFrame;
struct AVPacket;
struct AVRational;

// The host's hook into the encoders. Calls come on the thread that writes the stream's frames,
// sound packets also at ZEVA_stop. Must not throw.
class ZEVA_API FilterBase {
 public:
  FilterBase() = default;
  FilterBase(const FilterBase&) {}
  FilterBase& operator=(const FilterBase&) { return *this; }  // NOLINT: no data, nothing copied
  virtual ~FilterBase();

  // Video: called with each frame before it is encoded; the frame returned is encoded instead, and
  // with null none. It stays the host's and must live until the write returns. Default: the frame
  // unchanged.
  virtual AVFrame* filter(AVFrame* frame);

  // Audio: called with each encoded packet, which may be edited in place. Default: nothing.
  virtual void filter(AVPacket* packet);
};

extern "C" {

// Reports of a recording. Code 0, "start OK": the output is open, frames are accepted from now on.
// Any other code is a failure with its text: 10, 11, 12, 21 and negative codes while opening; a
// negative FFmpeg code when an output broke while recording (the other outputs go on), AVERROR_EXIT
// when a server took longer than `timeout_sec` over one packet; the codes of zeva/status.h for what
// does not end the recording, such as pictures that the encoder refuses. `message` lives only
// during the call. Called on the host's thread inside ZEVA_start, a write or ZEVA_stop, on the
// start thread, or on a writer thread, also on two of them at once; never after ZEVA_stop has
// returned. A call of ZEVA_stop for the same recording is refused there: logged, with *handle as it
// was.
typedef void (*ZEVA_status_callback)(int code, const char* message, void* user);

// Starts a recording and returns its handle, which ZEVA_stop frees. Never null for a failed
// opening: that is told by `cb` and by ZEVA_get_mInfo returning false.
// `cb`, `user` and `effective` may be null. `async` false: blocks until the output is open or has
// failed, and `effective` receives the settings really used (sample_rate, fps, pix_fmt, rc_mode,
// colours, hardware). `async` true: returns at once, opens on a thread of its own (for network
// outputs that may block while connecting) and `effective` receives the settings as given.
ZEVA_API void* ZEVA_start(const MovieInfo& info, ZEVA_status_callback cb, void* user,
                          MovieInfo* effective, bool async);

// The same with options (zeva/options.h), which may be null. Null `info`: null.
ZEVA_API void* ZEVA_start_with(const MovieInfo* info, const ZevaOptions* options,
                               ZEVA_status_callback cb, void* user, MovieInfo* effective,
                               bool async);

// Flushes the encoders, finishes every output, frees everything and sets *handle to null. Blocks
// until the movies are finished: files take as long as the disk needs; all live streams together
// have 2 s, whatever waits for them, and also while a server's name is looked up. An opening under
// way is made to give up. What an encoder still held and cannot give out is told by status.
// `handle` and *handle may be null. Refused inside the status callback.
ZEVA_API void ZEVA_stop(void** handle);

// Cuts the time between pause and resume out of the movie; frames offered meanwhile are dropped.
// False before the output is open. Resume: false unless paused.
ZEVA_API bool ZEVA_pause(void* h);
ZEVA_API bool ZEVA_resume(void* h);
ZEVA_API bool ZEVA_is_paused(void* h);

// Movie time in microseconds of the latest video input (of the latest audio input before any).
ZEVA_API int64_t ZEVA_movie_time(void* h);

// Time in microseconds of the last audio (else video) frame given to its encoder; -1 with neither.
ZEVA_API int64_t ZEVA_last_usec_pts(void* h);

// The clock of all host time stamps: calendar microseconds that advance with a steady counter.
ZEVA_API int64_t ZEVA_current_sys_usec();

// One picture of src_width x src_height in src_pix_fmt; `stride` is the distance of its lines in
// bytes, not less than a row. For planar formats the planes follow each other, the strides of the
// further planes in proportion. `size` is not used. The data is read before the call returns and
// stays the host's. May block while the queue of an output is full whose policy is to wait. True
// when the picture will be in the movie; false when it will not: not open yet, paused, disabled,
// bad stride, a time that does not grow, dropped by the filter, refused by the encoder, or no
// output takes packets any more.
ZEVA_API bool ZEVA_write_video_bgra(void* h, void* data, int size, int64_t pts_us, int stride);

// `bytes` of PCM in sample_fmt, src_sample_rate, channels; `pts_us` is the time of its first
// sample. Null `data` asks for silence from where the sound so far ends (movie time 0 before any)
// up to `pts_us`, to the sample; refused when that is not later. Its length may be a day: it is
// made in blocks, at many hundred times its speed with AAC, a hundred with MP3. True when encoder
// frames came out and all of them will be in the movie; false when one will not, as for pictures,
// and also when the samples were only buffered: what is left of a frame at the end is encoded by
// ZEVA_stop. The data is copied before the call returns. May block as above.
ZEVA_API bool ZEVA_write_audio_pcm(void* h, void* data, int bytes, int64_t pts_us);

// Ready frames with `pts` in `tb`; results as above. They are as the settings describe the host's
// pictures and sound, or as the encoder's destination frames (below); sound may change between the
// two and have any number of samples. Others are refused. A picture whose `colorspace` or
// `color_range` is specified is taken for that, whatever the options say. The frame's pts is
// overwritten, and nothing else: the frame stays the host's, who may write into it again when the
// call returns. Its picture type, as decoders leave it there, is not looked at. At a variable rate
// `pkt_duration`, in `tb` too, says how long a picture lasts that turns out to be the last one; 0
// for unknown.
ZEVA_API bool ZEVA_write_video_frame(void* h, AVFrame* frame, const AVRational& tb);
ZEVA_API bool ZEVA_write_audio_frame(void* h, AVFrame* frame, const AVRational& tb);

// The encoders' destination frames (format and size of the encoder), for hosts that fill them and
// write them with the functions above. Null while the output is not open or the stream is absent.
// They belong to the recording.
ZEVA_API AVFrame* ZEVA_video_dst_frame(void* h);
ZEVA_API AVFrame* ZEVA_audio_dst_frame(void* h);

// Installs a filter; call after the output is open. From another thread than the one that writes
// the stream, the filter before it may be called once more. The video filter then belongs to the
// recording, which deletes it; the audio filter stays the host's and must outlive the recording. A
// second filter replaces the first, which is neither called nor deleted. True for every non-null
// handle, even when there is no such encoder and nothing was stored.
ZEVA_API bool ZEVA_add_video_filter(void* h, FilterBase* f);
ZEVA_API bool ZEVA_add_audio_filter(void* h, FilterBase* f);

// The next piece of a moving colour pattern / a rising tone, in the host's source format, stamped
// in `tb`; to check a recording chain without a source. The frame belongs to the recording and is
// overwritten by the next call. Null without that encoder.
ZEVA_API AVFrame* ZEVA_generate_testing_vFrame(void* h, const AVRational& tb);
ZEVA_API AVFrame* ZEVA_generate_testing_aFrame(void* h, const AVRational& tb);

// Copies the settings in use into `out` (not null); returns whether the recording is open.
ZEVA_API bool ZEVA_get_mInfo(void* h, MovieInfo* out);

}  // extern "C"
