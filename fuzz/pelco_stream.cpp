// In: bytes of a line with Pelco-D on it, cut into pieces by the input's first byte.
// Holds: the bench's decoder hands out every byte once and in order, as a good frame or as noise,
// and the same frames however the stream is cut; the SD mode's search for replies, which checks
// nothing but the sync byte, takes every seventh byte from there.
#include <vector>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "module/camera_info.h"
#include "sim/pelco_decoder.h"

namespace {

using sim::Bytes;

struct Decoded {
  Bytes all;
  std::vector<PelcoFrame> frames;
};

Decoded Decode(std::span<const uint8_t> bytes, size_t piece) {
  Decoded decoded;
  sim::PelcoDecoder decoder;
  decoder.on_frame = [&decoded](const PelcoFrame& frame) {
    FUZZ_CHECK(frame[PELCO_SYNC_AT] == PELCO_SYNC && frame[PELCO_ADDRESS_AT] == PELCO_ADDRESS);
    FUZZ_CHECK(frame[PELCO_CHECKSUM_AT] == PelcoChecksum(frame));
    decoded.frames.push_back(frame);
    decoded.all.insert(decoded.all.end(), frame.begin(), frame.end());
  };
  decoder.on_noise = [&decoded](std::span<const uint8_t> noise) {
    decoded.all.insert(decoded.all.end(), noise.begin(), noise.end());
  };
  for (size_t at = 0; at < bytes.size(); at += piece)
    decoder.Feed(bytes.subspan(at, std::min(piece, bytes.size() - at)));
  decoder.Flush();
  return decoded;
}

void CheckSdReplies(std::span<const uint8_t> bytes) {
  SdCameraInfo info;
  size_t sync = bytes.size();  // of the frame under way
  for (size_t at = 0; at < bytes.size(); ++at) {
    if (sync == bytes.size() && bytes[at] == PELCO_SYNC) sync = at;
    const bool is_last = sync < bytes.size() && at - sync == PELCO_CHECKSUM_AT;
    FUZZ_CHECK(SdCameraInfoTake(&info, bytes[at]) == is_last);
    if (!is_last) continue;
    FUZZ_CHECK(info.model == bytes[sync + PELCO_DATA2_AT]);
    sync = bytes.size();
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const size_t piece = input.Byte() % 9 + 1;
  const auto bytes = input.Rest();
  const Decoded pieces = Decode(bytes, piece);
  const Decoded whole = Decode(bytes, bytes.size() + 1);
  FUZZ_CHECK(pieces.all == Bytes(bytes.begin(), bytes.end()));
  FUZZ_CHECK(whole.all == pieces.all);
  FUZZ_CHECK(whole.frames == pieces.frames);
  CheckSdReplies(bytes);
  return 0;
}
