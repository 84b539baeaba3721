#include "util/conf_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/regular_file.h"

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

bool IsTokenEnd(char c) {
  return c == '=' || c == '\0' || c == '\n' || c == '\r';
}

// Copies [begin, end) to `out`, truncated to the buffer and NUL-terminated.
void CopyCut(char* out, size_t out_size, const char* begin, const char* end) {
  if (out_size == 0) return;
  const size_t length = std::min(static_cast<size_t>(end - begin), out_size - 1);
  memcpy(out, begin, length);
  out[length] = '\0';
}

// The key and the value of the last key line.
struct ConfLine {
  char key[CUTIL_CONF_KEY_SIZE];
  char value[CUTIL_CONF_VALUE_SIZE];
};

// Splits one line. Returns false if the line is not a key line.
bool ParseLine(const char* text, ConfLine* line) {
  const char* rest = CUTIL_ParseToken(line->key, sizeof(line->key), text);
  if (rest == nullptr || *rest == '[' || *rest == '#') return false;
  if (CUTIL_ParseToken(line->value, sizeof(line->value), rest) == nullptr) line->value[0] = '\0';
  return true;
}

// One line, or one piece of a long line, in the writer. `length` counts every byte, so NUL bytes
// are copied like any other.
struct Piece {
  char text[CUTIL_CONF_WRITE_LINE_SIZE];
  size_t length;
};

// Returns false at the end of the file.
bool ReadPiece(FILE* file, Piece* piece) {
  piece->length = 0;
  while (piece->length < sizeof(piece->text) - 1) {
    const int c = getc(file);
    if (c == EOF) break;
    piece->text[piece->length++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  piece->text[piece->length] = '\0';
  return piece->length > 0;
}

// Returns true if the piece's text before its first '=' or ' ' is exactly `key`. If a '#' comes
// first, the text is the whole piece.
bool PieceHasKey(const Piece& piece, const char* key) {
  size_t end = strcspn(piece.text, "#= ");
  if (piece.text[end] == '#') end = strlen(piece.text);
  return end == strlen(key) && memcmp(piece.text, key, end) == 0;
}

// Copies `in` to `out` with `key` set to `value`. Returns 0 or an errno value.
int Rewrite(FILE* in, FILE* out, const char* key, const char* value) {
  bool found = false;
  bool at_line_start = true;
  Piece piece;
  while (ferror(out) == 0 && ReadPiece(in, &piece)) {
    if (PieceHasKey(piece, key)) {
      found = true;
      at_line_start = true;
      fprintf(out, "%s=%s\n", key, value);
    } else {
      at_line_start = piece.text[piece.length - 1] == '\n';
      fwrite(piece.text, 1, piece.length, out);
    }
  }
  // If the file does not end with a line feed, its last value and the new pair must not become one
  // line.
  if (!found) fprintf(out, "%s%s=%s\n", at_line_start ? "" : "\n", key, value);
  return ferror(in) == 0 && ferror(out) == 0 ? 0 : errno;
}

// Copies the permissions of the original file to the temporary one and forces its data to the
// medium: a rename must never replace a good file by an empty one. Returns 0 or an errno value.
int FlushAndSync(FILE* in, FILE* out) {
  struct stat original;
  if (fstat(fileno(in), &original) == 0) {
    (void)fchmod(fileno(out), original.st_mode & 07777);
  }
  return fflush(out) == 0 && fsync(fileno(out)) == 0 ? 0 : errno;
}

// Forces the rename to the medium. Otherwise a loss of power soon after it could bring back both
// the old file and the temporary one, which blocks every writer. Readers see the new file in any
// case, so a failure is reported but does not change the result.
void SyncDirectory() {
  const int directory = open(CUTIL_SETTINGS_DIRECTORY, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0 || fsync(directory) != 0) {
    printf("[CUTIL_SetConfValue] error, reason(sync %s, %s)\n", CUTIL_SETTINGS_DIRECTORY,
           strerror(errno));
  }
  if (directory >= 0) close(directory);
}

// Fills the temporary file `out`, closes both files and renames `out` to `path`. Returns 0 or -3.
int Replace(const char* path, FILE* in, FILE* out, const char* key, const char* value) {
  int error = Rewrite(in, out, key, value);
  if (error == 0) error = FlushAndSync(in, out);
  fclose(in);
  if (fclose(out) != 0 && error == 0) error = errno;
  if (error != 0) {
    unlink(CUTIL_TEMP_CONF_PATH);
    printf("[CUTIL_SetConfValue] error, reason(rewrite %s, %s)\n", path, strerror(error));
    return -3;
  }
  if (rename(CUTIL_TEMP_CONF_PATH, path) != 0) return -3;
  SyncDirectory();
  return 0;
}

void PrintInUse() {
  printf("[CUTIL_SetConfValue] temp.conf is already used ...\n");
}

void PrintCannotOpen(const char* path) {
  printf("[CUTIL_SetConfValue] we can't open the file : %s\n", path);
}

}  // namespace

const char* CUTIL_ParseToken(char* out, size_t out_size, const char* p) {
  while (IsBlank(*p))
    ++p;
  if (*p == '#' || *p == '[') return p;
  if (*p == '=') {
    CopyCut(out, out_size, p, p);
    return p + 1;
  }
  if (IsTokenEnd(*p)) return nullptr;

  const char* begin = p;
  while (!IsTokenEnd(*p))
    ++p;
  const char* end = p;
  if (IsBlank(end[-1])) --end;
  if (begin < end && *begin == '"') {
    ++begin;
    if (begin < end) --end;
  }
  CopyCut(out, out_size, begin, end);
  return *p == '=' ? p + 1 : p;
}

int CUTIL_GetConfValue(const char* path, const char* key, char* value_out, size_t value_size) {
  FILE* file = CUTIL_OpenSettings(path);
  if (file == nullptr) return -1;

  char text[CUTIL_CONF_LINE_SIZE];
  ConfLine line = {};
  bool found = false;
  while (!found && fgets(text, sizeof(text), file) != nullptr) {
    found = ParseLine(text, &line) && strncmp(line.key, key, strlen(key)) == 0;
  }
  fclose(file);
  CopyCut(value_out, value_size, line.value, line.value + strlen(line.value));
  return found ? 0 : -1;
}

int CUTIL_SetConfValue(const char* path, const char* key, const char* value) {
  if (access(CUTIL_TEMP_CONF_PATH, F_OK) == 0) {
    PrintInUse();
    return -1;
  }
  FILE* in = CUTIL_OpenRegular(path, 0, CUTIL_SETTINGS_MAX);
  if (in == nullptr) {
    PrintCannotOpen(path);
    return -1;
  }
  // Exclusive: if two writers found the name free, only one creates the file.
  FILE* out = fopen(CUTIL_TEMP_CONF_PATH, "wxe");
  if (out == nullptr) {
    const bool in_use = errno == EEXIST;
    fclose(in);
    if (in_use) {
      PrintInUse();
      return -1;
    }
    PrintCannotOpen(CUTIL_TEMP_CONF_PATH);
    return -2;
  }
  return Replace(path, in, out, key, value);
}
