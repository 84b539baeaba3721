// The lens mode's inputs from the device: files, and answers of the camera daemon.
#include <arpa/inet.h>
#include <poll.h>

#include <thread>

#include "lens/camera_query.h"
#include "lens/sensor_config.h"
#include "net/ipv4_address.h"
#include "net/udp_socket.h"
#include "sim/peers.h"
#include "tests/support.h"

namespace {

TEST(LensFiles, RecognizesSensorsWithARegulatedIris) {
  const std::tuple<const char*, int, const char*, int> rows[] = {
      {"IMX123", 1, "true", 1}, {"IMX124", 1, "\"TRUE\"", 1}, {"imx124", 1, "false", 0},
      {"AR0230", 0, "true", 1}, {"IMX12", 0, "1", 0},         {"IMX1234", 0, "null", 0},
  };
  for (const auto& [sensor, supported, json, enabled] : rows) {
    sim::InstallDevice({});
    sim::InstallLens({.sensor = sensor, .antiflicker = json});
    int32_t antiflicker = -1;
    int32_t sensor_supported = -1;
    EXPECT_EQ(read_sensor_lens_config(&antiflicker, &sensor_supported), 0);
    EXPECT_EQ(sensor_supported, supported) << sensor;
    EXPECT_EQ(antiflicker, enabled) << sensor << ' ' << json;
  }
}

TEST(CameraQuery, AcceptsOnlyTheAnswerToItsQuery) {
  const std::tuple<int, int, int> rows[] = {
      {CAMERA_QUERY, CAMERA_QUERY_FOCUS, 12345},
      {CAMERA_QUERY, CAMERA_QUERY_EXPOSURE, FOCUS_VALUE_NONE},
      {CICOMM_PCMD_PTZ, CAMERA_QUERY_FOCUS, FOCUS_VALUE_NONE},
  };
  sim::UdpPeer camera(CAMD_QUERY_PORT);
  for (const auto& [command, kind, value] : rows) {
    std::thread answering([&camera, kind = kind, command = command] {
      sim::Bytes packet(CICOMM_HEADER_SIZE + CAMERA_QUERY_SIZE);
      sockaddr_in asker = {};
      socklen_t length = sizeof(asker);
      pollfd question = {.fd = camera.Fd(), .events = POLLIN, .revents = 0};
      poll(&question, 1, 5000);
      recvfrom(camera.Fd(), packet.data(), packet.size(), MSG_DONTWAIT,
               reinterpret_cast<sockaddr*>(&asker), &length);
      EXPECT_EQ(packet[CICOMM_HEADER_SIZE + CAMERA_QUERY_KIND_AT], CAMERA_QUERY_FOCUS);
      sim::Bytes record(CAMERA_QUERY_SIZE);
      // Another loopback address simulates a foreign host that answers first.
      record[CAMERA_QUERY_KIND_AT] = CAMERA_QUERY_FOCUS;
      const sim::Bytes sprayed = sim::CommandPacket(CAMERA_QUERY, record);
      const sockaddr_in elsewhere = ZSK_Ipv4Address(INADDR_LOOPBACK + 1, ntohs(asker.sin_port));
      ZSK_SendUDPData(camera.Fd(), sprayed.data(), static_cast<int>(sprayed.size()), &elsewhere);
      record[CAMERA_QUERY_KIND_AT] = static_cast<uint8_t>(kind);
      record[CAMERA_QUERY_MEASURE_AT] = 0x39;
      record[CAMERA_QUERY_MEASURE_AT + 1] = 0x30;
      camera.SendTo(ntohs(asker.sin_port), sim::CommandPacket(command, record));
    });
    EXPECT_EQ(get_focus_value(), value) << command << ' ' << kind;
    answering.join();
  }
}

}  // namespace
