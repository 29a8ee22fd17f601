// After a crash: a finished movie out of the broken file and its index.
//
//   // broken.mp4: the recording without its trailer; broken.mp4.index: what `moov_url` named
//   void* repair = ZEVA_StartRepair_Async("broken.mp4", "broken.mp4.index", "whole.mp4",
//                                         on_progress, &window);
//   while (ZEVA_Repair_IsRunning(repair)) draw_progress_bar();   // on_progress feeds it
//   ZEVA_StopRepair(&repair);                                    // always, it frees the handle
//
//   bool ok = ZEVA_StartRepair_sync("broken.mp4", "broken.mp4.index", "whole.mp4",
//                                   nullptr, nullptr);           // or simply wait for it
//
// Every packet whose record stands in the index and whose bytes stand in the broken file comes out
// with the same bytes and time stamps, but for pictures that would show damage (below). Broken file
// and index are only read, never changed. Nothing is written to standard output; the log and
// standard error tell what happens.
//
// What a crash costs. The recorder hands packets and their records to the operating system
// together: when a line of records is full (960 bytes, about 55 packets: 0.7 s of 30 pictures and
// 47 AAC packets of 48 kHz a second), and earlier at the first packet after 200 ms. So at most 200
// ms and one packet are lost, half of that on average, whatever the bit rate: FFmpeg's I/O buffer
// of 256 KiB, which alone would hold back 2 s of 1 Mbit/s, is emptied each time. Pictures still in
// the encoder (up to 0.5 s with look-ahead) never became packets. All of this is about a crash of
// the program; when the operating system or the power fails, about a second more is lost, since the
// recorder has the disk keep both files once a second. Both promises end when the recorder cannot
// keep them, and then it says so: kZevaStatusIndexFailing and kZevaStatusSyncFailing (status.h).
//
// Bytes that were not written are never handed out. Two kinds of loss lie in the middle of a movie:
//   - Blocks that reached the disk out of order before a power failure: the file has zeros there. A
//     packet of H.264, H.265, MPEG-4 video or AAC is left out when it touches a block of 512 zero
//     bytes that begins at a multiple of 512, or is all zeros. So is one of H.264 whose NAL units
//     do not add up to the packet, or that has three zero bytes in a row within one, which the
//     standard forbids. MP3 and AC-3 pad silence with zeros: only packets of nothing else are left
//     out. Packets of other codecs, PCM for one, may be all zeros and are handed out as they are.
//   - A hole in the index, from a time when it could not be written: the next record carries its
//     own position. Times behind the hole are right.
// Behind both, pictures are left out up to the next key picture: they build on what is missing, and
// a decoder would show them damaged without a word. The sound goes on. A player holds the last good
// picture meanwhile, at most as long as key pictures are apart. The log says at the end
// how much was left out (and each packet that is zeros at level 5); `zeva repair`, `zeva recover`
// and `zeva inspect` name it and end with status 3.
//
// Paths are UTF-8. Broken file and index must be regular files. The container follows from the
// output's name (".mp4" as a rule). An existing output file is overwritten, but never the broken
// file or the index itself, under whatever spelling or link: that is refused with -10, and so are
// FFmpeg's protocols crypto, md5 and tee, which write elsewhere. A full disk is -10 too. After -10
// the output, if there is one, is incomplete and may be deleted.
//
// Damaged input gives a shorter movie or an error, never a crash. The index may have LF or CR LF.
//   - A size that is negative or larger than what is left of the broken file, or a position outside
//     of it: the recovery ends there and all later lines are ignored; nothing can be placed there.
//   - 4096 zero bytes or more at the end of the broken file, as a power failure may leave them in
//     place of what was being written: they count as not there.
//   - A stream index outside 0..4, or a packet that the output refuses (decreasing times, times or
//     durations no recording can reach, an unknown stream): the rest of its line, about 55 packets,
//     is lost. Their sizes and times still count, so that the next line starts where it should. The
//     same holds for a place of the broken file that the system cannot read.
//   - A record that is cut off, or has a ";" before its seventh field: the rest of its line is lost
//     and its size with it, so that packets of later lines may hold wrong bytes. What a crash cuts
//     off is the last line, behind which there is none.
//   - A number too large for its field counts as the largest; sums of times wrap around.
//   - Stream lines behind the fifth are ignored: no record can name such a stream.
//   - A stream without a usable time base, picture size, sampling rate or channel count: -10.
//   - A network output is given up when ZEVA_StopRepair is called; a file is always finished.
// Memory: one packet buffer, no larger than the broken file, and the output's packet table.
#pragma once

#include "zeva/export.h"

extern "C" {

// Reports of a repair. `progress` is the share of the index that was worked through, 0..1.
//    code 0    message "": every ten index lines, and once at the end of every repair that got as
//              far as the packets; 0.9 and more is reported as 1 at the end
//    code -1   the broken file cannot be opened; no output was made
//    code -2   the index cannot be read or describes no usable stream; no output was made
//    code -5   the repair had already been stopped
//    code -10  the output could not be set up or finished; `message` is FFmpeg's text, or says that
//              the output is one of the inputs
// `message` lives only during the call. Calls come on the repair's thread, in the synchronous form
// on the caller's, and never after ZEVA_StopRepair has returned.
typedef void (*ZEVA_repair_callback)(double progress, int code, const char* message, void* user);

// Starts a repair on a thread of its own and returns its handle at once; ZEVA_StopRepair frees it.
// The paths are copied. `progress` may be null; a null or empty path is reported as one that cannot
// be opened. Null only when the handle cannot be allocated. Several repairs may run at once.
ZEVA_API void* ZEVA_StartRepair_Async(const char* broken, const char* moov, const char* output,
                                      ZEVA_repair_callback progress, void* user);

// The same on the caller's thread: blocks until the output is finished, about as long as copying
// the broken file takes. True when the output was finished, also when nothing or not everything
// could be recovered.
ZEVA_API bool ZEVA_StartRepair_sync(const char* broken, const char* moov, const char* output,
                                    ZEVA_repair_callback progress, void* user);

// Ends a repair and frees its handle; *handle becomes null. A repair under way ends within one line
// of the index, and the output is finished with what was recovered so far; the call blocks until
// then. A repair that is over is only freed. `handle` and *handle may be null.
// Calling it from inside the callback is an error: the repair is told to end, but the handle stays
// and must be given to ZEVA_StopRepair again, from another thread or after the callback.
ZEVA_API void ZEVA_StopRepair(void** handle);

// Whether the repair is still at work; false for a null handle. Does not block.
ZEVA_API bool ZEVA_Repair_IsRunning(void* handle);

}  // extern "C"
