// Files by UTF-8 path, the same on every system.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace zeva {

// UTF-16 of a UTF-8 text, or of one in the system's code page; empty for null and for bad input.
// Systems whose file names are bytes have no use for it, but the conversion is the same there.
std::u16string to_wide(const char* s, bool utf8);

// fopen for a UTF-8 path: the wide call first, the narrow one when that fails. Null on failure.
FILE* open_file(const char* path, const char* mode);

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Moves to a byte offset, also beyond 2 GB. False when that fails or `offset` is negative.
bool seek_file(FILE* file, int64_t offset_bytes);
// The offset that is read or written next; -1 on failure.
int64_t tell_file(FILE* file);

// Has the disk keep all that the operating system was given of the file so far, through whichever
// handle. Blocks as long as the disk takes. False when that fails.
bool sync_file(FILE* file);

// Has the disk keep the entries of the folder that the file at `path` lies in, so that a file just
// made is still there after a power failure. True where the system needs no such request.
bool sync_folder_of(const std::string& path);

// Makes the file `size_bytes` long. 0 or an errno value.
int truncate_file(FILE* file, int64_t size_bytes);

// Sets disk space aside for the file up to `end_bytes` without making it longer; what is not used
// is given back when the file is truncated or closed. `begin_bytes` is where the space that was set
// aside before ends: a file system may visit every page from there on. 0; ENOSPC; ENOTSUP where the
// system or the file system cannot.
int reserve_space(FILE* file, int64_t begin_bytes, int64_t end_bytes);

// Bytes that are left for this user on the disk of the file at `path`, or of its folder when there
// is no such file. -1 when the system cannot tell. May block as long as a network share does not
// answer.
int64_t free_bytes(const std::string& path);

// Where an open file's path leads to by now. Where open files can be neither renamed nor removed it
// is always the same file.
enum class PathState {
  kSame,       // to the file; also when the system cannot tell
  kElsewhere,  // to another file or none: the file has been renamed
  kDeleted,    // likewise, and the file has no name any more: it goes away once it is closed
};
PathState path_state(FILE* file, const std::string& path);

// Marks the open file as one that a living program is writing, for as long as it is open; a child
// process does not inherit the mark. False when the file system cannot, or another program has it.
// Where files that are open for writing can be told from others anyway, this does nothing.
bool lock_file(FILE* file);
// True when a living program marked the file, or on such a system has it open for writing.
bool is_locked(const std::string& path);

// True when the path leads to anything, links followed.
bool file_exists(const std::string& path);
// False when there is no such file or it cannot be removed.
bool remove_file(const std::string& path);

// Puts the null device in the place of standard descriptors (0 to 2) that are closed. The next file
// or socket would get such a number, and whatever the process prints would go into it.
void occupy_standard_descriptors();

// The size of the regular file that the path leads to, links followed; -1 when there is none.
int64_t file_size(const std::string& path);
// Whether both paths lead to one existing file, by whatever spelling or link.
bool is_same_file(const std::string& a, const std::string& b);

}  // namespace zeva
