// Settings files under /etc: lines of key, '=' and value.
//
// Reads one value, or rewrites one value in place. Reader and writer split lines by different
// rules, which are part of the file format and described below. A rewrite goes through
// CUTIL_TEMP_CONF_PATH, which all processes of the device share: while that file exists, no other
// rewrite can start. Keeps no state between calls and blocks on file I/O only. Only one thread of a
// process may write at a time.
#pragma once

#include <cstddef>

// Directory of the files that are rewritten.
constexpr char CUTIL_SETTINGS_DIRECTORY[] = "/etc";
// Temporary file of a rewrite; renamed to the target file.
constexpr char CUTIL_TEMP_CONF_PATH[] = "/etc/temp.conf";

// Longest line of the reader, NUL included; it splits longer lines.
constexpr size_t CUTIL_CONF_LINE_SIZE = 2048;
// Longest key of the reader, NUL included; longer keys are truncated.
constexpr size_t CUTIL_CONF_KEY_SIZE = 64;
// Large enough for any value of a line, NUL included.
constexpr size_t CUTIL_CONF_VALUE_SIZE = CUTIL_CONF_LINE_SIZE;
// Longest line of the writer, NUL included; it splits longer lines.
constexpr size_t CUTIL_CONF_WRITE_LINE_SIZE = 1024;

// Parses one token of a line: the text up to the next '=' or line end. Strips leading blanks and
// tabs, one trailing blank or tab, and enclosing double quotes. Stores the token in
// `out`, NUL-terminated and truncated to out_size - 1 characters. `p` is NUL-terminated text and
// may contain a line end ('\n' or '\r'). Returns the position after the '=' if one ended the token,
// otherwise that of the line end. If no token begins, leaves `out` unchanged: at a '#' or '[' it
// returns that position, at the end of the line it returns null. A '=' alone is an empty token.
const char* CUTIL_ParseToken(char* out, size_t out_size, const char* p);

// Reads the value of the first line whose key begins with `key` (a prefix test) and stores it in
// `value_out`, NUL-terminated and truncated to value_size - 1 characters. Returns 0 on a match.
// Returns -1 with `value_out` unchanged if the file cannot be opened, is not a regular file or
// exceeds CUTIL_SETTINGS_MAX (only then it prints one line, on standard output). Returns -1 if no
// line matches; `value_out` then holds the value of the last key line, or is empty. Skips comment
// lines, section lines and lines with '#' or '[' directly after the '='. If a '#' or '[' follows
// the '=' after blanks, the line has no value of its own and gets that of the previous key line.
int CUTIL_GetConfValue(const char* path, const char* key, char* value_out, size_t value_size);

// Sets `key` to `value` in an existing file. Replaces every line whose text before its first '=' or
// ' ' is exactly `key` by "key=value"; if there is none, appends the pair. A line with a '#' before
// that '=' or ' ' does not match. A line with the key alone matches only at the end of a file that
// does not end with a line feed.
//
// Returns 0. Returns -1 if the temporary file is in use or `path` cannot be opened or exceeds
// CUTIL_SETTINGS_MAX; -2 if the temporary file cannot be created; -3 if writing it failed (it is
// then removed) or renaming it failed (it remains). Prints one line on standard output for every
// failure except a failed rename.
//
// `path` is either replaced as a whole or unchanged, even after a loss of power: the call blocks
// until the new file and the rename are on the medium. If only the rename could not be
// synchronised, it prints one line and returns 0: the new value is in place, but a loss of power
// within seconds may undo it. Keeps the file's permissions.
int CUTIL_SetConfValue(const char* path, const char* key, const char* value);
