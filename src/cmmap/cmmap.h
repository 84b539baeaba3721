// CMMAP: one fixed-size file of raw fields that several processes of the device share.
//
// Maps the file and copies between it and private memory under two locks: an advisory record
// lock on byte 0 of the file, then a System V semaphore. The object is a value of its owner; no
// operation allocates or frees it. Taking a lock blocks until no other process holds it. One
// thread of a process may use an object. All messages go to standard output.
#pragma once

// Modes of CMMAP_Init; one at a time.
enum CmmapMode : int {
  CMMAP_CREATE = 1,  // create or empty the file, fill it with zeros
  CMMAP_OPEN = 2,    // open an existing file
};

struct CMMAP {
  int fd;       // the open file, -1 when closed
  void* map;    // start of the mapping; null when there is none, MAP_FAILED after a failed one
  int size;     // bytes mapped
  int created;  // 1 when this object created the semaphore set
  int key;      // System V key of the semaphore set
  int sem;      // semaphore-set id, -1 when there is none to use

  // Removes the semaphore set if this object created it, unmaps, closes. Returns the result of
  // closing, or the negative descriptor when the file was not open. May follow a failed init.
  int (*Deinit)(CMMAP* self);

  // Copies `length` bytes from the start of the mapping to `destination` under the locks.
  // Returns 0, or -1 when nothing is mapped, `length` is not within 0 to `size` or, with a line,
  // the file has become shorter than `length`.
  int (*Read)(CMMAP* self, void* destination, int length);

  // Copies `length` bytes from `source` to the start of the mapping, as above.
  int (*Write)(CMMAP* self, const void* source, int length);

  // Take and release both locks. A lock that cannot be had is reported and done without; both
  // return 0. A holder that dies gives the locks back.
  int (*Lock)(CMMAP* self);
  int (*Unlock)(CMMAP* self);
};

// Opens `path` as `mode` says, attaches to the semaphore set `key` (made with the value 1 = free
// when it does not exist), maps `size` bytes. Returns 0, or -1 when the file cannot be opened,
// is shorter than `size` or cannot be mapped; Deinit is due in either case. An unusable
// semaphore is reported and is no failure. Whoever makes the file shorter while it is mapped has to
// hold the locks meanwhile: what lies past its end then is not to be touched in the mapping.
int CMMAP_Init(CMMAP* self, const char* path, int key, int mode, int size);
