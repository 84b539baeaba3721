#include "util/load_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "tests/support.h"

namespace {

using Buffer = std::unique_ptr<uint8_t, decltype(&free)>;

class LoadFile : public testing::Test {
 protected:
  Buffer Load(const std::string& path) { return {CUTIL_LoadFile(path.c_str(), &size_), free}; }

  support::TempFile file_;
  int size_ = -7;
};

TEST_F(LoadFile, GivesEveryByte) {
  std::string bytes(1000, '\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(i * 7);
  file_.Write(bytes);

  const Buffer buffer = Load(file_.Path());
  ASSERT_NE(buffer, nullptr);
  ASSERT_EQ(size_, 1000);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.get()), 1000), bytes);
}

TEST_F(LoadFile, EmptyFileIsABufferOfNoBytes) {
  const Buffer buffer = Load(file_.Path());
  EXPECT_NE(buffer, nullptr);
  EXPECT_EQ(size_, 0);
}

TEST_F(LoadFile, FailureIsOneLineOnStandardError) {
  const struct {
    const char* path;
    int* size_out;
    const char* reason;
  } rows[] = {
      {nullptr, &size_, "reason(filename[0] or filesize["},
      {file_.Path(), nullptr, "] or filesize[0] is NULL)\n"},
      {"/nonexistent/image", &size_, "reason('fp' is NULL, filename'/nonexistent/image')\n"},
      {"/tmp", &size_, "reason("},
  };
  for (const auto& row : rows) {
    testing::internal::CaptureStderr();
    const Buffer buffer(CUTIL_LoadFile(row.path, row.size_out), free);
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(buffer, nullptr) << row.reason;
    EXPECT_EQ(line.rfind("[CUTIL_LoadFile] Error line[", 0), 0U) << line;
    EXPECT_NE(line.find(row.reason), std::string::npos) << line;
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    EXPECT_EQ(size_, -7) << row.reason;
  }
}

}  // namespace
