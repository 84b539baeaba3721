// Settings files under /etc: lines of key, '=' and value.
//
// Reads one value and rewrites one value in place. Reader and writer split lines by rules of
// their own, which are part of the file format and given below. A rewrite goes through
// CUTIL_TEMP_CONF_PATH, which every process of the device shares: while that file exists no
// other rewrite starts. Nothing is kept between calls; the functions block on file I/O only.
// One thread of a process may write at a time.
#pragma once

#include <cstddef>

// Where the files that are rewritten stand.
constexpr char CUTIL_SETTINGS_DIRECTORY[] = "/etc";
// Temporary file of a rewrite, renamed over the file rewritten.
constexpr char CUTIL_TEMP_CONF_PATH[] = "/etc/temp.conf";

// A line as the reader takes it, its NUL included; a longer line counts as several.
constexpr size_t CUTIL_CONF_LINE_SIZE = 2048;
// A key as the reader keeps it, its NUL included; a longer key is cut.
constexpr size_t CUTIL_CONF_KEY_SIZE = 64;
// A value, its NUL included; no value of a line is longer.
constexpr size_t CUTIL_CONF_VALUE_SIZE = CUTIL_CONF_LINE_SIZE;
// A piece of a line as the writer takes it, its NUL included.
constexpr size_t CUTIL_CONF_WRITE_LINE_SIZE = 1024;

// Takes one token of a line: the text up to the next '=' or line end, without leading blanks
// and tabs, without one trailing blank or tab, without enclosing double quotes.
//   out       receives the token, NUL-terminated, cut to out_size - 1 characters;
//   p         NUL-terminated text, may hold a line end ('\n' or '\r').
// Returns the position after the '=' that ended the token, or of the line end that did. Where
// no token begins, `out` stays as it was: a '#' or '[' returns its position, the end of the
// line returns null. A '=' alone is an empty token.
const char* CUTIL_ParseToken(char* out, size_t out_size, const char* p);

// Reads the value of the first line whose key begins with `key` (a prefix test).
//   value_out receives it NUL-terminated, cut to value_size - 1 characters.
// Returns 0 on a match. Returns -1 when the file cannot be opened, is no regular one or is longer
// than CUTIL_SETTINGS_MAX (`value_out` untouched; the last with one line on standard output) or
// when no line matches (`value_out` then holds the value of the last key line, or is empty).
// Comment lines, section lines and lines with '#' or '[' right after the '=' are passed over; a '#'
// or '[' after blanks is no value either: the line then has that of the key line before.
int CUTIL_GetConfValue(const char* path, const char* key, char* value_out, size_t value_size);

// Sets `key` to `value` in an existing file: every line whose text before its first '=' or ' '
// is exactly `key` is replaced by "key=value"; without such a line the pair is appended. A '#'
// met first makes a line none of these, and so does a line end: a key without '=' stays.
// Returns 0; -1 when the temporary file is in use or `path` cannot be opened or is longer than
// CUTIL_SETTINGS_MAX; -2 when the temporary file cannot be created; -3 when writing it failed (it
// is then removed) or renaming it failed (it stays). Failures but the last print one line on
// standard output. `path` is replaced whole or left as it was, also across a loss of power: the
// call blocks until the medium has the bytes and the renaming. When only the latter cannot be had,
// one line says so and the result is 0: the new value is in place, and a loss of power within
// seconds may undo it. Permissions are kept.
int CUTIL_SetConfValue(const char* path, const char* key, const char* value);
