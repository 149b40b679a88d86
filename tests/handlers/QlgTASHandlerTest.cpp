// SPDX-License-Identifier: Apache-2.0
// qlg_tashandler: the packet as the server reads it (layout, byte order,
// level rules, logger-name and tag dashes, truncation, sequence), the
// refusals of a ring header that points outside the mapping, the bounded
// wait on a full ring, the reports, and the whole road through
// ardel-tas-reader running as a second process, at full speed.
#include <signal.h>

#include "handlers/HandlerHarness.h"
#include "handlers/QlgTASHandler.h"

namespace {

using namespace htest;

// A ring name of this run alone, so that parallel runs never meet.
std::string uniqueId() {
  static int serial = 0;
  return "ardel-tas-test-" + std::to_string(getpid()) + "-" + std::to_string(++serial);
}

// The server's side made in this process: ring and lock, removed at the end.
struct TestRing {
  explicit TestRing(uint32_t n, size_t mapped = 0) : id(uniqueId()) {
    EXPECT_TRUE(CxStatus_isOk(CxMutex_createNamed(&lock, (id + ".s").c_str())));
    EXPECT_TRUE(CxStatus_isOk(CxSharedMem_create(&mem, id.c_str(), mapped ? mapped : 64 + n, 0600)));
    word(QLG_IPC_OFF_SIZE) = n;
  }
  ~TestRing() {
    CxSharedMem_close(&mem);
    CxMutex_close(&lock);
    CxSharedMem_remove(id.c_str());
    CxMutex_removeNamed((id + ".s").c_str());
  }
  uint32_t& word(size_t off) { return *reinterpret_cast<uint32_t*>(CxSharedMem_address(mem) + off); }
  std::string bytes(size_t from, size_t len) {
    return std::string(reinterpret_cast<char*>(CxSharedMem_address(mem)) + 64 + from, len);
  }
  std::string id;
  CxMutex* lock = nullptr;
  CxSharedMem* mem = nullptr;
};

// ardel-tas-reader as a child process; its output goes to files.
struct Reader {
  explicit Reader(std::vector<std::string> args) {
    args.insert(args.begin(), ARDEL_TAS_READER);
    pid = htest::spawn(args, dir.file("out"), dir.file("err"));
    EXPECT_GT(pid, 0);
    htest::waitFor([&] { return readFile(dir.file("err")).find("ready") != std::string::npos; }, 5000);
  }
  // Ends the reader with sig; what it wrote to standard output.
  std::string stop(int sig = SIGTERM) {
    kill(pid, sig);
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readFile(dir.file("err"));
    return readFile(dir.file("out"));
  }
  TempDir dir;
  pid_t pid = -1;
};

class TASHandlerTest : public htest::HandlerTest {
 protected:
  QlgObject* make(const std::string& ipcId, htest::Props props = {}) {
    props.push_back({"IPCID", ipcId});
    return handler_ = HandlerTest::make("qlg_tashandler", props);
  }
  void publish(int level, const std::string& text, const char* file = nullptr, const char* function = nullptr,
               int line = 0) {
    htest::publish(handler_, level, text, [&](QlgEvent* e) {
      e->time = 0x123456789abLL;
      if (file) QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, file), QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, line);
      if (function) QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, function);
    });
  }
  QlgObject* handler_ = nullptr;
};

// What reaches the reader, as JSON lines, for each rule of the packet.
TEST_F(TASHandlerTest, ReaderPrintsEachRuleOfThePacket) {
  std::string id = uniqueId();
  Reader reader({"--json", "--size", "4096", id});
  make(id, {{"tasLoggerName", "a_b_c"}});
  const struct { int level; std::string text; const char* file; const char* function; std::string expected; } cases[] = {
      {-9999, "no level", nullptr, nullptr, "\"level\":3000,\"logger\":\"a-b-c\",\"time\":1250999896491,\"message\":\"no level\",\"function\":\"\",\"file\":\"\",\"line\":0"},
      {9999, "#x_y#_z \"q\"\n", "s.c", "main", "\"level\":7000,\"logger\":\"a-b-c\",\"time\":1250999896491,\"message\":\"#x-y#_z \\\"q\\\"\\u000a\",\"function\":\"main\",\"file\":\"s.c\",\"line\":7"},
  };
  for (const auto& c : cases) publish(c.level, c.text, c.file, c.function, 7);
  std::string out = reader.stop();
  EXPECT_EQ(count(out, "\n"), 2u) << out;
  for (const auto& c : cases) EXPECT_HAS(out, c.expected);
  CxSharedMem* gone = nullptr;
  CxMutex* lock = nullptr;
  EXPECT_EQ(CxSharedMem_open(&gone, id.c_str()).code, ENOENT) << "the reader removes the ring it made";
  EXPECT_EQ(CxMutex_openNamed(&lock, (id + ".s").c_str()).code, ENOENT) << "and its lock";
}

TEST_F(TASHandlerTest, ReaderAttachedToAnExistingRingLeavesItInPlace) {
  TestRing ring(4096);
  ring.word(QLG_IPC_OFF_READ) = ring.word(QLG_IPC_OFF_WRITE) = 4000; /* the next packet wraps */
  Reader reader({ring.id});
  make(ring.id);
  publish(4000, "a\\b\tc", "s.c", "fn", 7);
  EXPECT_EQ(reader.stop(SIGINT), "1250999896491 4000 Ardel fn s.c:7 a\\\\b\\tc\n");
  CxSharedMem* still = nullptr;
  EXPECT_TRUE(CxStatus_isOk(CxSharedMem_open(&still, ring.id.c_str())));
  CxSharedMem_close(&still);
}

// A cut text still carries the marker and the sequence text; being
// longer than N - 1024 it is then refused, so the packet built is checked.
TEST_F(TASHandlerTest, EventsCarryTheProcessSequenceAndCutTextsTheMarker) {
  inChild([&] {
    std::string id = uniqueId();
    Reader reader({"--size", "4096", id});
    QlgObject* h = make(id, {{"traceEnabled", "true"}});
    CaptureFd err(2);
    for (const std::string& text : {std::string("first"), std::string("second"), std::string(5000, 'x')})
      htest::publish(h, 3000, text);
    EXPECT_NE(err.text().find("The error code is -1."), std::string::npos);
    const char* packet = reinterpret_cast<char*>(static_cast<QlgTASHandlerData*>(h->data)->packet);
    std::string cut = std::string(4096 - 143 - 9, 'x') + " (truncated)... seq#=<2>";
    EXPECT_EQ(std::string(packet + 33, cut.size()), cut);
    std::string out = reader.stop(SIGINT);
    EXPECT_EQ(count(out, "\n"), 2u) << out;
    EXPECT_HAS(out, " Ardel - - first seq#=<0>\n");
    EXPECT_HAS(out, " Ardel - - second seq#=<1>\n");
  });
}

// What the handler refuses, each with its report, writing nothing and still
// passing the event on: a header written by a hostile or broken server
// (never followed), a packet too large, a full ring (waited on briefly),
// no ring at all.
TEST_F(TASHandlerTest, RefusedPacketsAreReportedWriteNothingAndPassTheEventOn) {
  const std::string minusOne = "QLGWH0090E A message could not be sent to the Tervane Application Server. The error code is -1.";
  const struct { const char* what; uint32_t n; size_t mapped; uint32_t read, write; size_t textLength; std::string report; } cases[] = {
      {"ring larger than the mapping", 1u << 20, 64 + 4096, 0, 0, 10, minusOne},
      {"read index outside the ring", 4096, 0, 4096, 0, 10, minusOne},
      {"write index outside the ring", 4096, 0, 0, 0xfffffff0u, 10, minusOne},
      {"ring smaller than the reserve", 1000, 0, 0, 0, 10, minusOne},
      {"packet larger than N - 1024", 4096, 0, 0, 0, 3100, minusOne},
      {"1000 bytes free, less than the reserve", 4096, 0, 2000, 1000, 10, "QLGWH0094W A message is discarded due to timeout."},
      {"no ring", 4096, 0, 0, 0, 10, "QLGWH0091E An IPC channel could not be opened. The error code is -252."}};
  std::string rec = HandlerTest::make("test_recorder")->name, passed;
  for (const auto& c : cases) {
    TestRing ring(c.n, c.mapped);
    ring.word(QLG_IPC_OFF_READ) = c.read;
    ring.word(QLG_IPC_OFF_WRITE) = c.write;
    make(c.what == std::string("no ring") ? uniqueId() : ring.id,
         {{"tasLoggerName", std::string(c.textLength, 'n')}, {"listenerNames", rec}});
    EXPECT_HAS(ardeltest::stderrOf([&] { publish(3000, c.what); }), c.report);
    EXPECT_EQ(ring.word(QLG_IPC_OFF_WRITE), c.write) << c.what;
    EXPECT_EQ(ring.bytes(0, CxSharedMem_size(ring.mem) - 64), std::string(CxSharedMem_size(ring.mem) - 64, '\0')) << c.what;
    passed += std::string(c.what) + ";";
  }
  EXPECT_EQ(ardeltest::seenList(), passed);
}

// Writer and reader at full speed through a small ring: every packet
// arrives once, whole and in order, across many wrap-arounds.
TEST_F(TASHandlerTest, HundredThousandPacketsThroughTheReaderArriveIntact) {
  const int kPackets = 100000;
  std::string id = uniqueId();
  Reader reader({"--size", "65536", "--count", std::to_string(kPackets), id});
  make(id);
  std::string want;
  for (int i = 0; i < kPackets; i++) {
    publish(3000, "p" + std::to_string(i) + " " + std::string(i % 97, 'a' + i % 26));
    want += "1250999896491 3000 Ardel - - p" + std::to_string(i) + " " + std::string(i % 97, 'a' + i % 26) + "\n";
  }
  std::string out = reader.stop(0);
  EXPECT_TRUE(out == want) << "first difference at byte " << std::mismatch(out.begin(), out.end(), want.begin(), want.end()).first - out.begin();
  EXPECT_NE(readFile(reader.dir.file("err")).find(" 0 damaged"), std::string::npos);
}

}  // namespace
