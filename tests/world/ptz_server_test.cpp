#include "relay/cptzsvr.h"

#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <deque>

#include "sim/peers.h"
#include "tests/support.h"

namespace {

using sim::Bytes;
using sim::PtzClient;
using std::string;
using support::ExpectTakes;
using support::OnStderr;
using support::Option;

constexpr int kPort = 4001;
constexpr int kAcceptUs = 5000000;
const Bytes kChunk(64, 0x42);

// Ends a connection so that the other end's next call fails rather than sees the end.
void Reset(PtzClient* client) {
  const linger at_once = {.l_onoff = 1, .l_linger = 0};
  setsockopt(client->Fd(), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  client->Close();
}

class PtzServer : public testing::Test {
 protected:
  PtzServer() {
    OnStderr([this] { EXPECT_EQ(CPTZSVR_Init(&server_, kPort), 0); });
  }
  ~PtzServer() override {
    OnStderr([this] { server_.Close(&server_); });
  }

  int Accept(int us) { return server_.Accept(&server_, us); }
  int Recv(int us) { return server_.Recv(&server_, buffer_, us); }
  int SendAll(const Bytes& bytes) {
    return server_.SendAll(&server_, bytes.data(), static_cast<int>(bytes.size()));
  }
  // A new client; it has the lowest free slot.
  PtzClient& Connect() {
    clients_.emplace_back(kPort);
    OnStderr([this] { EXPECT_EQ(Accept(kAcceptUs), 0); });
    return clients_.back();
  }
  // Waits until a client's socket shows one of `events`.
  void WaitFor(int slot, short events) const {
    pollfd source = {.fd = server_.clients[slot], .events = events, .revents = 0};
    EXPECT_EQ(poll(&source, 1, 5000), 1);
  }
  // Whether a client's socket takes bytes again.
  bool HasRoom(int slot) const {
    pollfd source = {.fd = server_.clients[slot], .events = POLLOUT, .revents = 0};
    return poll(&source, 1, 0) > 0;
  }
  // Waits as a mode does and serves the queues.
  void ServeQueues(int ms) {
    pollfd sources[CPTZSVR_SOURCES];
    CPTZSVR_Watch(&server_, true, sources);
    poll(sources, CPTZSVR_SOURCES, ms);
    CPTZSVR_SendQueued(&server_, sources);
  }
  // What the next read gives: "COUNT FIRST-BYTE", and what is said about it.
  string Next() {
    string text;
    const string said = OnStderr([&] {
      const int count = Recv(1000000);
      text = std::to_string(count) + ' ' + std::to_string(buffer_[0]);
    });
    return text + (said.empty() ? "" : ' ' + said);
  }
  int Connected() const {
    return static_cast<int>(std::count_if(std::begin(server_.clients), std::end(server_.clients),
                                          [](int fd) { return fd >= 0; }));
  }

  CPTZSVR server_;
  uint8_t buffer_[CPTZSVR_RECV_MAX];
  std::deque<PtzClient> clients_;
};

TEST_F(PtzServer, ServesItsPort) {
  EXPECT_EQ(support::LocalAddress(server_.listener), "0.0.0.0 4001");
  EXPECT_EQ(Option(server_.listener, SOL_SOCKET, SO_REUSEADDR), 1);
  EXPECT_NE(Option(server_.listener, IPPROTO_TCP, TCP_NODELAY), 0);
  PtzClient client(kPort);
  const string connected = OnStderr([this] { Accept(kAcceptUs); });
  const string fd = std::to_string(server_.clients[0]) + "\n";
  EXPECT_EQ(connected, "CONNECT[4001, 127.0.0.1] : " + fd);
  EXPECT_EQ(OnStderr([this] { server_.Close(&server_); }), "DISCONNECT : " + fd);
  EXPECT_TRUE(client.WaitClosed());
  EXPECT_EQ(server_.listener, -1);
  EXPECT_EQ(Connected(), 0);
  EXPECT_EQ(Accept(kAcceptUs), -1);
  EXPECT_EQ(OnStderr([this] { server_.Close(&server_); }), "");
}

TEST_F(PtzServer, ReadsTheLowestNumberedClientFirst) {
  PtzClient& first = Connect();
  PtzClient& second = Connect();
  Connect().Send(Bytes(10, 3));
  second.Send(Bytes(600, 2));
  WaitFor(1, POLLIN);
  EXPECT_EQ(Next(), "256 2");
  first.Send(Bytes(1, 1));
  WaitFor(0, POLLIN);
  for (const char* next : {"1 1", "256 2", "88 2", "10 3"})
    EXPECT_EQ(Next(), next);
  EXPECT_EQ(Recv(0), -1);
}

TEST_F(PtzServer, FreesTheSlotOfAClientThatIsGone) {
  PtzClient& second = (Connect(), Connect());
  for (const bool reset : {false, true}) {
    const string fd = std::to_string(server_.clients[0]);
    PtzClient& first = reset ? clients_.back() : clients_.front();
    first.Send(Bytes(3, 1));
    if (reset) {
      EXPECT_EQ(Next(), "3 1");
      Reset(&first);
    } else {
      first.Close();
      EXPECT_EQ(Next(), "3 1");  // its last words
    }
    WaitFor(0, POLLRDHUP);
    second.Send(Bytes(2, 2));
    WaitFor(1, POLLIN);
    EXPECT_EQ(Next(), "2 2 DISCONNECT : " + fd + "\n");
    EXPECT_EQ(Connected(), 1);
    Connect().Send(Bytes(4, 4));
    EXPECT_GE(server_.clients[0], 0);
    EXPECT_EQ(Next(), "4 4");
  }
}

TEST_F(PtzServer, KeepsWhatAClientCannotTakeYet) {
  Connect();
  PtzClient& slow = Connect();
  const int& waiting = server_.queues[1].count;
  Bytes sent;
  Bytes got;
  // Twice, the second time round the end of the queue's memory, with some left in between.
  for (int i = 0; i < 2; ++i) {
    while (waiting < SEND_QUEUE_SIZE * 2 / 3) {
      const Bytes chunk(1009, static_cast<uint8_t>(sent.size()));  // no divisor of the queue's size
      SendAll(chunk);
      sent.insert(sent.end(), chunk.begin(), chunk.end());
      ASSERT_EQ(clients_[0].Receive(chunk.size()), chunk);
    }
    EXPECT_GE(CPTZSVR_WaitLimitUs(&server_), 5000000);
    // A server that was busy for longer than the limit asks once more before it gives up.
    server_.took_us[1] -= 20'000'000;
    EXPECT_EQ(CPTZSVR_WaitLimitUs(&server_), 0);
    const size_t wanted = sent.size() - (i == 0 ? SEND_QUEUE_SIZE / 3 : 0);
    while (got.size() < wanted) {
      const Bytes piece = slow.Receive(std::min<size_t>(wanted - got.size(), 65536));
      ASSERT_FALSE(piece.empty());
      got.insert(got.end(), piece.begin(), piece.end());
      if (HasRoom(1)) ServeQueues(0);
    }
  }
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(server_.queues[1].bytes, nullptr);
  EXPECT_EQ(CPTZSVR_WaitLimitUs(&server_), INT64_MAX);
  EXPECT_EQ(Connected(), 2);
}

TEST_F(PtzServer, DropsAClientThatStopsReading) {
  Connect();
  Connect();
  // Room for a few bytes comes back as the system moves what is queued: fill that up as well.
  for (int full = 0; full < 200; poll(nullptr, 0, full > 0 ? 1 : 0)) {
    const size_t size = full == 0 ? sizeof(buffer_) : 1;
    full = send(server_.clients[0], buffer_, size, MSG_DONTWAIT) > 0 ? 0 : full + 1;
  }
  ExpectTakes(0, 50, [this] { SendAll(kChunk); });
  EXPECT_EQ(clients_[1].Receive(64), kChunk);
  const auto serve = [this] {
    while (server_.clients[0] >= 0) {
      const int64_t limit_us = CPTZSVR_WaitLimitUs(&server_);
      ASSERT_LE(limit_us, 10000000);
      ServeQueues(static_cast<int>(limit_us / 1000) + 1);
    }
  };
  ExpectTakes(9900, 1200, [&] { OnStderr(serve); });
  EXPECT_EQ(server_.queues[0].bytes, nullptr);
  EXPECT_EQ(Connected(), 1);
}

TEST_F(PtzServer, GivesAClientThatHasEndedWhatWaits) {
  PtzClient& client = Connect();
  Bytes sent;
  while (server_.queues[0].count == 0) {
    SendAll(kChunk);
    sent.insert(sent.end(), kChunk.begin(), kChunk.end());
  }
  shutdown(client.Fd(), SHUT_WR);
  WaitFor(0, POLLRDHUP);
  EXPECT_EQ(Recv(0), -1);
  EXPECT_EQ(Connected(), 1);
  EXPECT_EQ(Recv(1000), -1);
  Bytes got;
  OnStderr([&] {
    while (got.size() < sent.size()) {
      const Bytes piece = client.Receive(std::min<size_t>(sent.size() - got.size(), 65536));
      ASSERT_FALSE(piece.empty());
      got.insert(got.end(), piece.begin(), piece.end());
      ServeQueues(0);
    }
  });
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(Connected(), 0);
}

TEST_F(PtzServer, DropsAClientWhoseQueueIsFull) {
  const string fd = std::to_string((Connect(), server_.clients[0]));
  const Bytes large(SEND_QUEUE_SIZE / 2, 0x42);
  EXPECT_EQ(OnStderr([&] {
              for (int i = 0; Connected() == 1 && i < 100; ++i)
                SendAll(large);
            }),
            "DISCONNECT : " + fd + "\n");
  EXPECT_EQ(Connected(), 0);
  // The slot's next client starts with nothing.
  PtzClient& next = Connect();
  SendAll(kChunk);
  EXPECT_EQ(next.Receive(64), kChunk);
}

TEST_F(PtzServer, PollsWithoutWaiting) {
  for (const int clients : {0, 10}) {
    for (int i = 0; i < clients; ++i)
      Connect();
    ExpectTakes(0, [this] {
      for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Accept(1), 0);
        EXPECT_EQ(Recv(1), -1);
      }
    });
  }
  ExpectTakes(120, [this] { EXPECT_EQ(Accept(120000), 0); });
  ExpectTakes(120, [this] { EXPECT_EQ(Recv(12000), -1); });  // for each of ten
}

// Refuses connections as a mode does, pass after pass, for want of descriptors. Free of virtual
// objects: the check of a sanitizer for them needs descriptors itself.
int AcceptWithoutDescriptors(CPTZSVR* server) {
  const auto end = sim::Clock::now() + sim::milliseconds(2500);
  while (sim::Clock::now() < end) {
    EXPECT_EQ(server->Accept(server, 1000), 0);
    pollfd sources[CPTZSVR_SOURCES];
    CPTZSVR_Watch(server, true, sources);
    poll(&sources[CPTZSVR_LISTENER_SOURCE], 1, 1);
  }
  return 0;
}

TEST_F(PtzServer, WaitsWhenThereAreNoDescriptorsLeft) {
  clients_.emplace_back(kPort);
  CPTZSVR* const server = &server_;
  const auto refuse = [server] { return AcceptWithoutDescriptors(server); };
  string said;
  support::ExpectTakes(2500,
                       [&] { said = OnStderr([&] { support::WithoutDescriptors(refuse); }); });
  const string line = "[CPTZSVR_Accept] error, reason(accept, Too many open files)\n";
  const auto lines = static_cast<size_t>(std::count(said.begin(), said.end(), '\n'));
  EXPECT_TRUE(lines >= 2 && lines <= 4) << said;
  EXPECT_EQ(said.size(), lines * line.size());
  EXPECT_EQ(said.find(line), 0U) << said;
  OnStderr([this] {
    EXPECT_TRUE(sim::WaitUntil([this] { return Accept(1) == 0 && Connected() == 1; }));
  });
}

}  // namespace
