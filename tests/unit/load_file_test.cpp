#include "util/load_file.h"

#include <memory>

#include "tests/support.h"

namespace {

// What a whole file and an empty one give shows in the updates of the system tests.
TEST(LoadFile, FailureIsOneLineOnStandardError) {
  int size = -7;
  const struct {
    const char* path;
    int* size_out;
    const char* reason;
  } rows[] = {
      {nullptr, &size, "reason(filename[0] or filesize["},
      {"/etc", nullptr, "] or filesize[0] is NULL)\n"},
      {"/nonexistent/image", &size, "reason('fp' is NULL, filename'/nonexistent/image')\n"},
      {"/tmp", &size, "reason("},
  };
  for (const auto& row : rows) {
    const std::string line = support::OnStderr([&] {
      const std::unique_ptr<uint8_t, decltype(&free)> buffer(CUTIL_LoadFile(row.path, row.size_out),
                                                             free);
      EXPECT_EQ(buffer, nullptr) << row.reason;
    });
    EXPECT_EQ(line.rfind("[CUTIL_LoadFile] Error line[", 0), 0U) << line;
    EXPECT_NE(line.find(row.reason), std::string::npos) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    EXPECT_EQ(size, -7) << row.reason;
  }
}

}  // namespace
