// In: bytes from the lens micom, as the lens mode's parser gets them.
// Holds: the parser cuts the stream into frames with a good head, wherever they lie; only the
// question for the lens model is answered, each time with one good frame.
#include <vector>

#include "fuzz/check.h"
#include "fuzz/fake_line.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/i2m.h"
#include "lens/mfz_state.h"
#include "lens/video_source.h"

namespace {

bool IsHead(const uint8_t* bytes) {
  return bytes[I2M_SYNC_AT] == I2M_SYNC &&
         (bytes[I2M_KIND_AT] == I2M_WRITE || bytes[I2M_KIND_AT] == I2M_READ);
}

// Where the stream's frames begin: the first good head, then the first one behind that frame.
std::vector<size_t> FramesOf(std::span<const uint8_t> bytes) {
  std::vector<size_t> frames;
  size_t at = 0;
  while (at + I2M_FRAME_SIZE <= bytes.size()) {
    if (IsHead(&bytes[at])) {
      frames.push_back(at);
      at += I2M_FRAME_SIZE;
    } else {
      ++at;
    }
  }
  return frames;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> bytes(data, size);
  fuzz::PutFile(VIDEO_SOURCE_PATH, "VideoSource.1.Dev=IMX178\n");
  fuzz::Input silence(nullptr, 0);
  const fuzz::FakeLine line(&silence);
  I2mParser parser = {};
  g_mfz.parser = {};
  size_t questions = 0;
  std::vector<size_t> frames;
  for (size_t at = 0; at < size; ++at) {
    i2m_parse_byte(bytes[at]);
    if (!I2mParserTake(&parser, bytes[at])) continue;
    const size_t begin = at + 1 - I2M_FRAME_SIZE;
    frames.push_back(begin);
    FUZZ_CHECK(std::equal(parser.frame.begin(), parser.frame.end() - 1, data + begin));
    FUZZ_CHECK(parser.frame[I2M_CHECKSUM_AT] == I2mChecksum(parser.frame));
    if (parser.frame[I2M_ADDRESS_AT] == I2M_ADDR_MFZ_MODEL) ++questions;
  }
  FUZZ_CHECK(frames == FramesOf(bytes));
  FUZZ_CHECK(line.writes.size() == questions);
  const I2mFrame answer = I2mBuild(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 3, 2);
  for (const auto& written : line.writes)
    FUZZ_CHECK(std::equal(written.begin(), written.end(), answer.begin(), answer.end()));
  return 0;
}
