#include "tests/system/module_fixture.h"

#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>

FullDisk::FullDisk(const char* directory) : directory_(directory) {
  EXPECT_EQ(mount("tmpfs", directory, "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  std::ofstream filler(directory_ + "/filler", std::ios::binary);
  while (filler << std::string(512, 'x') << std::flush) {
  }
}

FullDisk::~FullDisk() {
  umount2(directory_.c_str(), MNT_DETACH);
}

void FullDisk::MakeRoom() {
  unlink((directory_ + "/filler").c_str());
}
