// Files by UTF-8 path, the same on every system.
#pragma once

#include <cstdio>
#include <string>

namespace zeva {

// UTF-16 of a UTF-8 text, or of one in the system's code page; empty for null and for bad input.
// Systems whose file names are bytes have no use for it, but the conversion is the same there.
std::u16string to_wide(const char* s, bool utf8);

// fopen for a UTF-8 path: the wide call first, the narrow one when that fails. Null on failure.
FILE* open_file(const char* path, const char* mode);

}  // namespace zeva
