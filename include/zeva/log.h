// The process-wide log of ZEVALib.
//
//   ZEVA_Log_On("/var/log/recorder.log", 4);   // information and worse, appended to the file
//   ZEVA_Set_Log_Callback([](const char* tag, int level, const char* file, int line,
//                            const char* message) { my_log(level, message); });
//   ...
//   ZEVA_Set_Log_Callback({});                 // before the host is unloaded
//
// A line looks like `1113-17:49:29[I][bg] zv_av 57  : --- before stop` and is at most 1023 bytes
// long, newline included. Levels: 0 unconditional, 1 fatal, 2 error, 3 warning, 4 information,
// 5 debug, 6 everything. Without any call the library writes levels 0 to 2 to standard error.
//
// The controls may be called from any thread and in any order; they do not block. Lines come from
// the host's threads and from the library's own.
#pragma once

#include <cstdio>
#include <functional>

#include "zeva/export.h"

extern "C" {

// Sends lines to the file `path` (UTF-8), opened for appending; quotes, blanks and line ends around
// the path are ignored. A null path, or one that cannot be opened, means standard error. `level` as
// in ZEVA_Log_Level. The file stays open for the life of the process.
ZEVA_API void ZEVA_Log_On(const char* path, int level);

// Sends lines to a stream the host owns and keeps open; null means standard error. On Windows host
// and library must share the C runtime that made the stream.
ZEVA_API void ZEVA_Log_On2(FILE* stream, int level);

// Sends lines to standard output from now on. It does not silence the log: ZEVA_Log_Level(-1) does.
ZEVA_API void ZEVA_Log_Off();

// Lets through lines whose level is at most `level`; -1 silences the stream altogether. Does not
// apply to a callback, which receives every line.
ZEVA_API void ZEVA_Log_Level(int level);

// Hands every message, unfiltered, to `callback` instead of the stream: (tag, level 0..6, source
// file path relative to the source tree, line, message of at most 1022 characters, without time or
// newline). The message lives only during the call. The callback runs on whichever thread logs,
// several at once, and must not call a ZEVA function of a recording. An empty function returns to
// the stream. A call already under way on another thread may still finish after this returned.
ZEVA_API void ZEVA_Set_Log_Callback(
    std::function<void(const char* tag, int level, const char* file, int line, const char* message)>
        callback);

}  // extern "C"
