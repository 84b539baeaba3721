#include "module/firmware_update.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "module/micom_firmware.h"
#include "module/module_send.h"
#include "serial/serial_io.h"
#include "util/load_file.h"
#include "util/time_mark.h"

namespace {

constexpr char kName[] = "MicomFirmwareUpdate";

using Payload = std::span<const uint8_t>;

// --- Entering the update mode --------------------------------------------------------------------

int EnterUpdateMode(Rs232Context* context) {
  HdModuleSend(SERIAL_ONE_PORT, HD_FIRMWARE_UPDATE, HD_SETTING, HD_NO_DATA);
  CloseRS232(context);
  if (OpenRS232(context, MICOM_UPDATE_LINE) < 0) {
    printf("[%s] Error line[%d], reason(OpenRS232)\n", kName, __LINE__);
    return -1;
  }
  return 0;
}

int AwaitAck() {
  TimeMark begin;
  CUTIL_GetTime(&begin);
  MicomAckSearch search = {};
  while (CUTIL_CheckTimeout(begin, MICOM_ACK_TIMEOUT_MS) != 0) {
    uint8_t byte = 0;
    if (SerialRecv(SERIAL_ONE_PORT, &byte, 1, MICOM_ACK_BYTE_TIMEOUT_S) <= 0) continue;
    if (!MicomAckTake(&search, byte)) continue;
    printf("Recv ACK [%04X]\n", search.value);
    return 0;
  }
  printf("[%s] Error line[%d], reason(ack not match %04X vs %04X)\n", kName, __LINE__, search.value,
         MICOM_ACK);
  return -1;
}

// --- Packets -----------------------------------------------------------------------------------

// The answer to one packet.
struct Answer {
  int received;  // bytes received, 0 or 1; -1 if receiving failed
  uint8_t byte;  // MICOM_START if none was received
};

Answer Exchange(const MicomPacket& packet) {
  Answer answer = {.received = 0, .byte = MICOM_START};
  SerialSend(SERIAL_ONE_PORT, packet.bytes.data(), packet.size);
  answer.received = SerialRecv(SERIAL_ONE_PORT, &answer.byte, 1, MICOM_ANSWER_TIMEOUT_S);
  return answer;
}

int SendHeader(const Payload& payload) {
  const Answer answer = Exchange(MicomHeaderPacket(static_cast<uint32_t>(payload.size())));
  if (answer.received < 0) {
    printf("[%s] Error line[%d], reason(SerialRecv)\n", kName, __LINE__);
    return -1;
  }
  if (answer.byte != MICOM_ACCEPTED) {
    printf("[%s] Error line[%d], reason(sync not match %02X vs %02X)\n", kName, __LINE__,
           answer.byte, MICOM_ACCEPTED);
    return -1;
  }
  return 0;
}

// Sends one data packet until it is accepted. Returns the number of tries in the round in which the
// micom accepted it, or -1 if it never did.
int SendUntilAccepted(const MicomPacket& packet) {
  Answer answer = {};
  for (int round = 0; round < MICOM_ROUNDS; ++round) {
    for (int send = 1; send <= MICOM_TRIES_PER_ROUND; ++send) {
      answer = Exchange(packet);
      if (answer.byte == MICOM_ACCEPTED) return send;
    }
  }
  printf("[%s] Error line[%d], reason(send data packet not match %02X vs %02X)\n", kName, __LINE__,
         answer.byte, MICOM_ACCEPTED);
  return -1;
}

int Percent(size_t part, size_t whole) {
  return static_cast<int>(100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

int SendPayload(const Payload& payload) {
  size_t accepted = 0;
  while (accepted < payload.size()) {
    const size_t count = std::min(payload.size() - accepted, static_cast<size_t>(MICOM_DATA_MAX));
    const int sends = SendUntilAccepted(MicomDataPacket(payload.subspan(accepted, count)));
    if (sends < 0) return -1;
    accepted += count;
    printf("* write %3d%%, retry[%d / %d]\n", Percent(accepted, payload.size()), sends,
           MICOM_TRIES_PER_ROUND);
  }
  return 0;
}

int SendTail(const Payload& payload) {
  const Answer answer = Exchange(MicomTailPacket(payload));
  if (answer.received <= 0) {
    printf("[%s] Error line[%d], reason(SerialRecv)\n", kName, __LINE__);
    return -1;
  }
  if (answer.byte != MICOM_ACCEPTED) {
    printf("[%s] Error line[%d], reason(send tail packet not match %02X vs %02X)\n", kName,
           __LINE__, answer.byte, MICOM_ACCEPTED);
    return -1;
  }
  return 0;
}

int Update(Rs232Context* context, const Payload& payload) {
  if (EnterUpdateMode(context) != 0 || AwaitAck() != 0 || SendHeader(payload) != 0 ||
      SendPayload(payload) != 0 || SendTail(payload) != 0) {
    return -1;
  }
  printf("end\n");
  return 0;
}

}  // namespace

int MicomFirmwareUpdate(Rs232Context* context) {
  int size = 0;
  uint8_t* image = CUTIL_LoadFile(MICOM_FIRMWARE_PATH, &size);
  if (image == nullptr) {
    fprintf(stderr, "[%s] Error line[%d], reason(CUTIL_LoadFile '%s')\n", kName, __LINE__,
            MICOM_FIRMWARE_PATH);
    return -1;
  }
  int result = -1;
  if (size < MICOM_IMAGE_HEADER_SIZE) {
    printf("[%s] Error line[%d], reason(image shorter than its header, %d vs %d)\n", kName,
           __LINE__, size, MICOM_IMAGE_HEADER_SIZE);
  } else {
    result = Update(context, {image + MICOM_IMAGE_HEADER_SIZE,
                              static_cast<size_t>(size - MICOM_IMAGE_HEADER_SIZE)});
  }
  free(image);
  return result;
}
