// CMMAP: a fixed-size file of raw fields, shared by several processes of the device.
//
// Maps the file and copies between it and private memory under two locks: an advisory record lock
// on byte 0 of the file, then a System V semaphore. The caller owns the object; no operation
// allocates or frees it. Taking a lock blocks until no other process holds it. Only one thread of a
// process may use an object. All messages go to standard output.
#pragma once

// Modes of CMMAP_Init; they cannot be combined.
enum CmmapMode : int {
  CMMAP_CREATE = 1,  // create or truncate the file, fill it with zeros
  CMMAP_OPEN = 2,    // open an existing file
};

struct CMMAP {
  int fd;       // the open file, -1 when closed
  void* map;    // start of the mapping; null if there is none, MAP_FAILED if mapping failed
  int size;     // bytes mapped
  int created;  // 1 when this object created the semaphore set
  int key;      // System V key of the semaphore set
  int sem;      // semaphore-set id, -1 if unusable

  // Removes the semaphore set if this object created it, unmaps and closes the file. Returns the
  // result of close, or the negative descriptor if the file was not open. May be called after a
  // failed init.
  int (*Deinit)(CMMAP* self);

  // Copies `length` bytes from the start of the mapping to `destination` under the locks. Returns
  // 0. Returns -1 if nothing is mapped or `length` is not within 0 to `size`. Also returns -1,
  // after printing one line, if the file has become shorter than `length`.
  int (*Read)(CMMAP* self, void* destination, int length);

  // Copies `length` bytes from `source` to the start of the mapping. Same rules as Read.
  int (*Write)(CMMAP* self, const void* source, int length);

  // Take and release both locks. If a lock fails, they print a message and continue without it;
  // both always return 0. The system releases the locks of a process that dies.
  int (*Lock)(CMMAP* self);
  int (*Unlock)(CMMAP* self);
};

// Opens `path` in `mode`, attaches to the semaphore set `key` (creates it with the value 1 = free
// if it does not exist) and maps `size` bytes. Returns 0, or -1 if the file cannot be opened, is
// shorter than `size` or cannot be mapped; the caller must call Deinit in either case. An unusable
// semaphore is reported but is not a failure. A process that truncates the file must hold both
// locks while it does so: an access past the end of the file faults.
int CMMAP_Init(CMMAP* self, const char* path, int key, int mode, int size);
