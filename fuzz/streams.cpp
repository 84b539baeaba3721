// Input: a byte that selects the kind of stream, then bytes of the line.
// Checked: the parser finds every frame with a valid head, whatever surrounds it; of the frames of
// the lens micom, only the query for the lens model is answered, each time with one valid frame.
#include <algorithm>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/i2m_dispatch.h"
#include "lens/mfz_state.h"
#include "lens/video_source.h"
#include "module/camera_info.h"
#include "sim/device.h"
#include "tests/world/lens_line.h"

namespace {

using ByteSpan = std::span<const uint8_t>;

bool IsMicomHead(ByteSpan bytes) {
  const uint8_t kind = bytes[I2M_KIND_AT];
  return bytes[I2M_SYNC_AT] == I2M_SYNC && (kind == I2M_WRITE || kind == I2M_READ);
}

// The SD mode checks only the sync byte.
bool IsSdHead(ByteSpan bytes) {
  return bytes[PELCO_SYNC_AT] == PELCO_SYNC;
}

// Feeds each byte to `take`, which must report a frame exactly at its last byte: the first frame
// with a valid head, then the first one after its end.
template <typename Take>
void CheckFrames(ByteSpan bytes, size_t frame_size, bool (*is_head)(ByteSpan bytes), Take take) {
  size_t begin = 0;
  for (size_t end = 1; end <= bytes.size(); ++end) {
    while (begin + frame_size <= bytes.size() && !is_head(bytes.subspan(begin)))
      ++begin;
    const bool is_frame = end == begin + frame_size;
    FUZZ_CHECK(take(bytes[end - 1], bytes.first(end)) == is_frame);
    if (is_frame) begin = end;
  }
}

void CheckMicom(ByteSpan bytes) {
  sim::WriteTextFile(VIDEO_SOURCE_PATH, "VideoSource.1.Dev=IMX178\n");
  LensLine line;
  I2mParser parser = {};
  g_mfz.parser = {};
  size_t questions = 0;
  CheckFrames(bytes, I2M_FRAME_SIZE, IsMicomHead, [&](uint8_t byte, ByteSpan until) {
    i2m_parse_byte(byte);
    if (!I2mParserTake(&parser, byte)) return false;
    FUZZ_CHECK(until.size() >= I2M_FRAME_SIZE);
    const ByteSpan contents = until.last(I2M_FRAME_SIZE).first(I2M_CHECKSUM_AT);
    FUZZ_CHECK(std::ranges::equal(contents, ByteSpan(parser.frame).first(I2M_CHECKSUM_AT)));
    FUZZ_CHECK(parser.frame[I2M_CHECKSUM_AT] == I2mChecksum(parser.frame));
    if (parser.frame[I2M_ADDRESS_AT] == I2M_ADDR_MFZ_MODEL) ++questions;
    return true;
  });
  const std::string answer = sim::Hex(I2mBuild(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 3, 2));
  FUZZ_CHECK(line.TakeWrites() == std::vector(questions, answer));
}

void CheckSdReplies(ByteSpan bytes) {
  SdCameraInfo info;
  CheckFrames(bytes, PELCO_FRAME_SIZE, IsSdHead, [&info](uint8_t byte, ByteSpan until) {
    if (!SdCameraInfoTake(&info, byte)) return false;
    FUZZ_CHECK(until.size() >= PELCO_FRAME_SIZE);
    FUZZ_CHECK(info.model == until.last(PELCO_FRAME_SIZE)[PELCO_DATA2_AT]);
    return true;
  });
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  (input.Byte() % 2 == 0 ? CheckMicom : CheckSdReplies)(input.Rest());
  return 0;
}
