#include "relay/cptzsvr.h"

#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <deque>
#include <numeric>

#include "sim/peers.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"

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

// Closes a connection, or resets it so that the next call of the other end fails instead of
// returning end-of-file.
void End(PtzClient* client, bool is_cut) {
  const linger at_once = {.l_onoff = is_cut ? 1 : 0, .l_linger = 0};
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
  // Connects a client, which gets the lowest free slot.
  PtzClient& Connect() {
    clients_.emplace_back(kPort);
    OnStderr([this] { EXPECT_EQ(Accept(kAcceptUs), 0); });
    return clients_.back();
  }
  // Waits until the socket of a client reports one of `events`.
  void WaitFor(int slot, short events) const {
    pollfd source = {.fd = server_.clients[slot], .events = events, .revents = 0};
    EXPECT_EQ(poll(&source, 1, 5000), 1);
  }
  // Waits as a mode does, then serves the queues.
  void ServeQueues(int ms) {
    pollfd sources[CPTZSVR_SOURCES];
    CPTZSVR_Watch(&server_, true, sources);
    poll(sources, CPTZSVR_SOURCES, ms);
    CPTZSVR_SendQueued(&server_, sources);
  }
  // Reads from a client until it has `wanted` bytes, and serves its queue. The kernel reopens a
  // full window with a real-time timer, while the virtual clock stands still.
  void Take(PtzClient* client, int slot, size_t wanted, Bytes* got) {
    for (const double end = support::RealSeconds() + 10; got->size() < wanted;) {
      ASSERT_LT(support::RealSeconds(), end);
      const size_t most = std::min<size_t>(wanted - got->size(), 65536);
      const Bytes piece = client->Receive(most, sim::milliseconds(0));
      got->insert(got->end(), piece.begin(), piece.end());
      pollfd room = {.fd = server_.clients[slot], .events = POLLOUT, .revents = 0};
      if (poll(&room, 1, 0) > 0) ServeQueues(0);
    }
  }
  // The result of the next read, "COUNT FIRST-BYTE ", and the messages about it.
  string Next() {
    const string said = OnStderr([this] { return Recv(1000000); });
    const size_t count = said.find(' ') + 1;
    return said.substr(0, count) + std::to_string(buffer_[0]) + ' ' + said.substr(count);
  }
  int Connected() const {
    return static_cast<int>(std::ranges::count_if(server_.clients, [](int fd) { return fd >= 0; }));
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
  EXPECT_EQ(Accept(kAcceptUs), -1);
  EXPECT_EQ(OnStderr([this] { server_.Close(&server_); }), "");
}

TEST_F(PtzServer, ReadsTheLowestNumberedClientFirst) {
  PtzClient& first = Connect();
  PtzClient& second = Connect();
  Connect().Send(Bytes(10, 3));
  second.Send(Bytes(600, 2));
  WaitFor(1, POLLIN);
  EXPECT_EQ(Next(), "256 2 ");
  first.Send(Bytes(1, 1));
  WaitFor(0, POLLIN);
  for (const char* next : {"1 1 ", "256 2 ", "88 2 ", "10 3 "})
    EXPECT_EQ(Next(), next);
  EXPECT_EQ(Recv(0), -1);
}

TEST_F(PtzServer, FreesTheSlotOfADisconnectedClient) {
  PtzClient& second = (Connect(), Connect());
  for (const bool is_cut : {false, true}) {
    const string fd = std::to_string(server_.clients[0]);
    PtzClient& first = is_cut ? clients_.back() : clients_.front();
    first.Send(Bytes(3, 1));
    WaitFor(0, POLLIN);
    EXPECT_EQ(Next(), "3 1 ");
    End(&first, is_cut);
    WaitFor(0, POLLRDHUP);
    second.Send(Bytes(2, 2));
    WaitFor(1, POLLIN);
    EXPECT_EQ(Next(), "2 2 DISCONNECT : " + fd + "\n");
    Connect().Send(Bytes(4, 4));
    EXPECT_GE(server_.clients[0], 0);
    EXPECT_EQ(Next(), "4 4 ");
  }
}

TEST_F(PtzServer, QueuesWhatAClientCannotAcceptYet) {
  Connect();
  PtzClient& slow = Connect();
  const int& waiting = server_.queues[1].count;
  Bytes sent;
  Bytes got;
  // Twice: the second round wraps around the end of the queue's memory, with a rest from the first.
  for (int i = 0; i < 2; ++i) {
    while (waiting < SEND_QUEUE_SIZE / 6 * 5) {
      Bytes chunk(1009);  // does not divide the queue size
      std::iota(chunk.begin(), chunk.end(), static_cast<uint8_t>(sent.size() / chunk.size()));
      SendAll(chunk);
      sent.insert(sent.end(), chunk.begin(), chunk.end());
      ASSERT_EQ(clients_[0].Receive(chunk.size()), chunk);
    }
    EXPECT_GE(CPTZSVR_WaitLimitUs(&server_), 5000000);
    // A server that was busy beyond the timeout retries once before it drops the client.
    server_.last_progress_us[1] -= 20'000'000;
    EXPECT_EQ(CPTZSVR_WaitLimitUs(&server_), 0);
    while (i == 0 && waiting > SEND_QUEUE_SIZE / 3)
      Take(&slow, 1, got.size() + 4096, &got);
  }
  Take(&slow, 1, sent.size(), &got);
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(server_.queues[1].bytes, nullptr);
  EXPECT_EQ(CPTZSVR_WaitLimitUs(&server_), INT64_MAX);
  EXPECT_EQ(Connected(), 2);
}

TEST_F(PtzServer, DropsAClientThatStopsReading) {
  Connect();
  Connect();
  // The kernel frees some buffer space while it moves queued data: fill that, too.
  for (int full = 0; full < 200; poll(nullptr, 0, full > 0 ? 1 : 0)) {
    const size_t size = full == 0 ? sizeof(buffer_) : 1;
    full = send(server_.clients[0], buffer_, size, MSG_DONTWAIT) > 0 ? 0 : full + 1;
  }
  ExpectTakes(0, [this] { SendAll(kChunk); });
  EXPECT_EQ(clients_[1].Receive(64), kChunk);
  const auto serve = [this] {
    while (server_.clients[0] >= 0) {
      const int64_t limit_us = CPTZSVR_WaitLimitUs(&server_);
      ASSERT_LE(limit_us, 10000000);
      ServeQueues(static_cast<int>(limit_us / 1000) + 1);
    }
  };
  ExpectTakes(9900, [&] { OnStderr(serve); });
  EXPECT_EQ(Connected(), 1);
}

// The kernel detects vanished clients and buffers little for one that does not read.
TEST_F(PtzServer, BoundsTheCostOfAClient) {
  clients_.emplace_back(kPort, 4096);
  OnStderr([this] { Accept(kAcceptUs); });
  size_t sent = 0;
  for (; server_.queues[0].count == 0; sent += kChunk.size())
    SendAll(kChunk);
  EXPECT_LT(sent, 128U * 1024);
  const int rows[][3] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                         {IPPROTO_TCP, TCP_KEEPIDLE, 30},
                         {IPPROTO_TCP, TCP_KEEPINTVL, 10},
                         {IPPROTO_TCP, TCP_KEEPCNT, 3},
                         {IPPROTO_TCP, TCP_USER_TIMEOUT, 60000}};
  for (const auto& [level, option, value] : rows)
    EXPECT_EQ(Option(server_.clients[0], level, option), value) << option;
}

TEST_F(PtzServer, FlushesTheQueueOfAClientThatHasShutDown) {
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
  OnStderr([&] { Take(&client, 0, sent.size(), &got); });
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
  // The next client in the slot starts with an empty queue.
  PtzClient& next = Connect();
  SendAll(kChunk);
  EXPECT_EQ(next.Receive(64), kChunk);
}

TEST_F(PtzServer, WaitsForTheGivenTimeout) {
  for (int i = 0; i < CPTZSVR_MAX_CLIENTS; ++i)
    Connect();
  for (const int ms : {0, 120}) {
    ExpectTakes(ms, [this, ms] { EXPECT_EQ(Accept(ms * 1000), 0); });
    ExpectTakes(ms, [this, ms] { EXPECT_EQ(Recv(ms * 100), -1); });  // for each of ten clients
  }
}

// Calls the server pass after pass, as a mode does.
TEST_F(PtzServer, BacksOffWhenNoDescriptorsAreLeft) {
  clients_.emplace_back(kPort);
  const string said = OnStderr([this] {
    const FailingCall call("accept4", EMFILE);
    const auto end = sim::Clock::now() + sim::milliseconds(2500);
    while (sim::Clock::now() < end) {
      EXPECT_EQ(Accept(1000), 0);
      ServeQueues(1);
    }
  });
  const string line = "[CPTZSVR_Accept] error, reason(accept, Too many open files)\n";
  EXPECT_EQ(said, line + line + line);  // one per second
  OnStderr([this] {
    EXPECT_TRUE(sim::WaitUntil([this] { return Accept(1) == 0 && Connected() == 1; }));
  });
}

}  // namespace
