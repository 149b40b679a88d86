// SPDX-License-Identifier: Apache-2.0
// qlg_sysloghandler: the RFC 5424 record field by field, the journal's
// datagram (received on a socket of the test's own), the property checks,
// and delivery to a real rsyslogd that the test starts on 127.0.0.1 with
// its own configuration in a temporary directory: every transport across a
// restart of the collector, and a dead collector that must not hold up the
// caller.
#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/un.h>

#include <chrono>
#include <set>

#include "handlers/HandlerHarness.h"
#include "handlers/QlgSyslogHandler.h"
#include "platform/CxSystem.h"

namespace {

using namespace htest;

const int64_t kTime = 1700000000123LL; /* 2023-11-14T22:13:20.123Z */

sockaddr_in loopback(unsigned port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<uint16_t>(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return a;
}

// A port free for both TCP and UDP on 127.0.0.1 right now.
unsigned freePort() {
  for (int tries = 0; tries < 50; tries++) {
    int t = socket(AF_INET, SOCK_STREAM, 0), u = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a = loopback(0);
    socklen_t len = sizeof a;
    bool ok = bind(t, (sockaddr*)&a, sizeof a) == 0 && getsockname(t, (sockaddr*)&a, &len) == 0 &&
              bind(u, (sockaddr*)&a, sizeof a) == 0;
    close(t);
    close(u);
    if (ok) return ntohs(a.sin_port);
  }
  return 0;
}

// rsyslogd in the foreground, writing what it parsed of each record as
// tab-separated fields, one line per record.
class Rsyslog {
 public:
  Rsyslog() : port(freePort()) {
    dir.write("rsyslog.conf",
              "global(workDirectory=\"" + dir.path() + "\" maxMessageSize=\"64k\")\n"
              "module(load=\"imuxsock\" SysSock.Use=\"off\")\nmodule(load=\"imtcp\")\nmodule(load=\"imudp\")\n"
              "input(type=\"imuxsock\" Socket=\"" + dir.file("log") + "\" useSpecialParser=\"off\" parseHostname=\"on\" ignoreTimestamp=\"off\")\n"
              "input(type=\"imtcp\" address=\"127.0.0.1\" port=\"" + std::to_string(port) + "\")\n"
              "input(type=\"imudp\" address=\"127.0.0.1\" port=\"" + std::to_string(port) + "\")\n"
              "template(name=\"f\" type=\"string\" string=\"%pri%\\t%timereported:::date-rfc3339%\\t%hostname%"
              "\\t%app-name%\\t%procid%\\t%msgid%\\t%structured-data%\\t%msg%\\n\")\n"
              "*.* action(type=\"omfile\" file=\"" + dir.file("out") + "\" template=\"f\")\n");
  }
  ~Rsyslog() { stop(); }
  void start() {
    pid = htest::spawn({"/usr/sbin/rsyslogd", "-n", "-f", dir.file("rsyslog.conf"), "-i", dir.file("pid")});
    ASSERT_GT(pid, 0);
    // Ready once a probe record sent over TCP has come out the other end.
    std::string probe = "<13>1 - - probe - - - " + std::to_string(++probes);
    ASSERT_TRUE(waitFor([&] {
      if (readFile(dir.file("out")).find("\t" + std::to_string(probes) + "\n") != std::string::npos) return true;
      int s = socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in a = loopback(port);
      std::string framed = std::to_string(probe.size()) + " " + probe;
      if (connect(s, (sockaddr*)&a, sizeof a) == 0) (void)!write(s, framed.data(), framed.size());
      close(s);
      return false;
    }, 15000)) << "rsyslogd did not come up";
  }
  void stop() {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    int status;
    if (!waitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; }, 10000)) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
    }
    pid = -1;
  }
  // The records received so far (probes left out), split into fields.
  std::vector<std::vector<std::string>> records() {
    std::vector<std::vector<std::string>> out;
    std::istringstream in(readFile(dir.file("out")));
    for (std::string line; std::getline(in, line);) {
      std::vector<std::string> f;
      std::istringstream fs(line);
      for (std::string x; std::getline(fs, x, '\t');) f.push_back(x);
      if (f.size() == 8 && f[3] != "probe") out.push_back(f);
    }
    return out;
  }
  bool waitForRecords(size_t n) { return waitFor([&] { return records().size() >= n; }, 15000); }
  TempDir dir;
  unsigned port;
  pid_t pid = -1;
  int probes = 0;
};

class SyslogHandlerTest : public htest::HandlerTest {
 protected:
  QlgObject* make(const htest::Props& props) { return handler_ = HandlerTest::make("qlg_sysloghandler", props); }
  QlgSyslogHandlerData* data() { return static_cast<QlgSyslogHandlerData*>(handler_->data); }
  // Events i in [from, to), one of each shape the record has to carry.
  void publish(int from, int to) {
    static const std::string texts[] = {"plain text", "QLGBC0020E Out of memory.", "gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC", "bad \xFF byte"};
    for (int i = from; i < to; i++)
      htest::publish(handler_, i % 2 ? 6000 : 3000, texts[i % 4] + " #" + std::to_string(i), [i](QlgEvent* e) {
        e->time = kTime + i;
        if (i % 3 == 1) {
          QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "dir/scan.c");
          QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 40 + i);
          QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, "f\"q\\]");
        }
        if (i % 3 == 2) {
          QlgEvent_addStringProperty(e, "product", "Scan \xE2\x82\xAC");
          QlgEvent_addLongProperty(e, "processId", 77);
        }
      });
  }
  // The fields rsyslog must have parsed out of record i.
  std::vector<std::string> expected(int i) {
    std::string sd = i % 3 == 0 ? "-"
                     : i % 3 == 1 ? "[src@32473 file=\"dir/scan.c\" func=\"f\\\"q\\\\\\]\" line=\"" + std::to_string(40 + i) + "\"]"
                                  : "[pd@32473 product=\"Scan \xE2\x82\xAC\" processId=\"77\"]";
    static const std::string msgs[] = {"plain text", "QLGBC0020E Out of memory.", "\xEF\xBB\xBFgr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC", "bad \xFF byte"};
    char host[256] = "";
    CxSystem_getHostName(host, sizeof host);
    char stamp[40];
    snprintf(stamp, sizeof stamp, "2023-11-14T22:13:20.%03dZ", 123 + i);
    return {std::to_string(8 * 19 + (i % 2 ? 3 : 7)), stamp, host, "ardel-test", std::to_string(getpid()),
            i % 4 == 1 ? "QLGBC0020E" : "-", sd, msgs[i % 4] + " #" + std::to_string(i)};
  }
  QlgObject* handler_ = nullptr;
};

// The record as written, for the shapes rsyslog is not asked about: line
// ends, no level, no text, a full slot cut inside a character.
TEST_F(SyslogHandlerTest, RecordFieldsFollowRfc5424) {
  make({{"appName", "app"}, {"facility", "local0"}});
  strcpy(data()->hostName, "h\xC3\xA9st x");
  const struct { int level; const char* text; size_t cap; const char* expected; } cases[] = {
      {7000, "QLGBC0020E Out of memory.\r\n", 2048, "<130>1 2023-11-14T22:13:20.123Z h__st_x app PID QLGBC0020E - QLGBC0020E Out of memory."},
      {-9999, "x", 2048, "<133>1 2023-11-14T22:13:20.123Z h__st_x app PID - - x"},
      {5000, "", 2048, "<132>1 2023-11-14T22:13:20.123Z h__st_x app PID - -"},
      {4000, nullptr, 2048, "<134>1 2023-11-14T22:13:20.123Z h__st_x app PID - -"},
      {1000, "ab\xE2\x82\xAC", 62, "<135>1 2023-11-14T22:13:20.123Z h__st_x app PID - - \xEF\xBB\xBF" "ab"},
  };
  std::string pid = std::to_string(getpid());
  for (const auto& c : cases) {
    QlgEvent* e = QlgEvent_createTagged(c.level, nullptr, 0, 0, "", 0);
    e->time = kTime;
    std::string want = c.expected;
    want.replace(want.find("PID"), 3, pid);
    char out[2048];
    size_t cap = c.cap == 62 ? want.size() + 2 : c.cap; /* room for two bytes of the euro sign */
    EXPECT_EQ(std::string(out, QlgSyslogHandler_formatRecord(data(), e, c.text, out, cap)), want);
    QlgEvent_free(e);
  }
}

TEST_F(SyslogHandlerTest, BadPropertyValuesAreReportedAndIgnored) {
  make({});
  const std::string longName(49, 'a'), longPath(200, 'p');
  struct Case { const char* key; const char* value; };
  const Case bad[] = {{"transport", "http"}, {"host", ""}, {"port", "0"}, {"port", "514x"}, {"port", "65536"},
                      {"facility", "24"}, {"facility", "user1"}, {"appName", "two words"}, {"appName", longName.c_str()},
                      {"socketPath", longPath.c_str()}, {"maxBlockMs", "-1"}, {"maxBlockMs", "10ms"}, {"queueSize", "0"},
                      {"maxRecordBytes", "100"}};
  for (const Case& c : bad) {
    std::string err = ardeltest::stderrOf([&] { QlgObject_storeProperty(handler_, c.key, c.value); });
    EXPECT_HAS(err, std::string("QLGSH0170W Property '") + c.key) << c.key << "=" << c.value;
  }
  auto settings = [](const QlgSyslogHandlerData* d) {
    return std::to_string(d->transport) + " " + d->host + ":" + std::to_string(d->port) + " " +
           std::to_string(d->facility) + " " + d->appName + " " + d->socketPath + " " +
           std::to_string(d->maxBlockMs) + " " + std::to_string(d->queueSize);
  };
  EXPECT_EQ(settings(data()), std::to_string(QLG_SYSLOG_UNIX) + " 127.0.0.1:514 1 test_handlers /dev/log 10 1024");
  const Case good[] = {{"facility", "LOCAL7"}, {"transport", "TCP"}, {"port", " 6514 "}, {"maxBlockMs", "0"}};
  for (const Case& c : good) QlgObject_storeProperty(handler_, c.key, c.value);
  EXPECT_EQ(settings(data()), std::to_string(QLG_SYSLOG_TCP) + " 127.0.0.1:6514 23 test_handlers /dev/log 0 1024");
}

// Journal fields of one datagram, in both the plain and the binary form.
std::map<std::string, std::string> fieldsOf(const std::string& d) {
  std::map<std::string, std::string> out;
  for (size_t at = 0; at < d.size();) {
    size_t nl = d.find('\n', at), eq = d.find('=', at);
    if (nl == std::string::npos) return {{"malformed", d.substr(at)}};
    if (eq < nl) {
      out[d.substr(at, eq - at)] = d.substr(eq + 1, nl - eq - 1);
      at = nl + 1;
      continue;
    }
    uint64_t n = 0;
    for (int i = 7; i >= 0; i--) n = n << 8 | static_cast<unsigned char>(d[nl + 1 + i]);
    out[d.substr(at, nl - at)] = d.substr(nl + 9, n);
    at = nl + 9 + n + 1;
  }
  return out;
}

TEST_F(SyslogHandlerTest, JournalDatagramCarriesEveryFieldAndATraceCallsSourceLocation) {
  TempDir dir;
  std::string path = dir.file("journal.sock");
  int s = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, path.c_str());
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);

  QlgObject* h = make({{"transport", "journald"}, {"appName", "scanner"}, {"facility", "local3"}, {"socketPath", path}});
  // A trace event as a trace call makes it: the source location beside the
  // property set, not in it.
  QlgEvent* e = QlgEvent_createTagged(6000, nullptr, 0, 0, "QLGBC0020E Out of memory.\nsecond line\r\n", 0);
  e->srcFile = "scan.c";
  e->srcFunction = "run";
  e->srcLine = 88;
  e->srcFlags = QLG_EVENT_SRC_FILE | QLG_EVENT_SRC_FUNCTION;
  QlgEvent_addStringProperty(e, "product", "Scan");
  h->cls->slots.handler.publish(h, e);

  pollfd p{s, POLLIN, 0};
  ASSERT_EQ(poll(&p, 1, 5000), 1) << "no datagram arrived";
  char buf[4096];
  ssize_t n = recv(s, buf, sizeof buf, 0);
  ASSERT_GT(n, 0);
  std::map<std::string, std::string> want = {
      {"PRIORITY", "3"},          {"SYSLOG_FACILITY", "19"}, {"SYSLOG_IDENTIFIER", "scanner"},
      {"MESSAGE_ID", "QLGBC0020E"}, {"CODE_FILE", "scan.c"},   {"CODE_LINE", "88"},
      {"CODE_FUNC", "run"},       {"ARDEL_PRODUCT", "Scan"},
      {"MESSAGE", "QLGBC0020E Out of memory.\nsecond line"}};
  EXPECT_EQ(fieldsOf(std::string(buf, static_cast<size_t>(n))), want);

  // A small slot keeps whole fields and cuts only the message.
  // Room for the other fields, the 18 bytes kept for the message's framing
  // and 3 of its text: the euro sign does not fit whole.
  const char* text = "x\xE2\x82\xAC yz";
  size_t others = QlgSyslogHandler_formatRecord(data(), e, text, buf, sizeof buf) - strlen("MESSAGE=\n") - strlen(text);
  size_t len = QlgSyslogHandler_formatRecord(data(), e, text, buf, others + 18 + 3);
  std::map<std::string, std::string> cut = fieldsOf(std::string(buf, len));
  EXPECT_EQ(cut["CODE_FUNC"] + "|" + cut["MESSAGE"], "run|x") << "no 'malformed' entry: " << cut.count("malformed");

  // The RFC 5424 record puts the same location into its structured data.
  data()->transport = QLG_SYSLOG_UNIX;
  len = QlgSyslogHandler_formatRecord(data(), e, "t", buf, sizeof buf);
  EXPECT_HAS(std::string(buf, len), "[src@32473 file=\"scan.c\" func=\"run\" line=\"88\"]");
  QlgEvent_free(e);
  close(s);
}

class SyslogDelivery : public SyslogHandlerTest, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (access("/usr/sbin/rsyslogd", X_OK) != 0) GTEST_SKIP() << "rsyslogd is not installed (Debian package rsyslog)";
    SyslogHandlerTest::SetUp();
    server.start();
    make({{"transport", GetParam()}, {"host", "127.0.0.1"}, {"port", std::to_string(server.port)},
          {"socketPath", server.dir.file("log")}, {"facility", "local3"}, {"appName", "ardel-test"}});
  }
  Rsyslog server;
};

// Every record arrives with its fields intact.  Stream records written
// while the collector is down wait in the queue and arrive after it is
// back; datagrams may be lost then, but only then.
TEST_P(SyslogDelivery, RecordsSurviveACollectorRestart) {
  bool stream = std::string(GetParam()) == "tcp";
  publish(0, 10);
  ASSERT_TRUE(server.waitForRecords(10));
  server.stop();
  publish(10, 20);
  server.start();
  publish(20, 30);
  ASSERT_TRUE(server.waitForRecords(stream ? 30 : 20)) << server.records().size();
  // the last of the datagrams after the restart are in; give the rest a moment
  waitFor([&] { return !server.records().empty() && server.records().back()[7].find("#29") != std::string::npos; }, 5000);
  std::set<int> seen;
  for (const auto& r : server.records()) {
    int i = std::stoi(r[7].substr(r[7].rfind('#') + 1));
    EXPECT_TRUE(seen.insert(i).second) << "record " << i << " twice";
    EXPECT_EQ(r, expected(i)) << "record " << i;
  }
  for (int i = 0; i < 30; i++) EXPECT_TRUE(seen.count(i) || !(stream || i < 10 || i >= 20)) << "record " << i << " lost";
  if (stream) { EXPECT_EQ(QlgSyslogHandler_droppedCount(handler_), 0u); }
}

INSTANTIATE_TEST_SUITE_P(Transports, SyslogDelivery, ::testing::Values("tcp", "udp", "unix"));

// A collector that never answers: the queue fills, the caller waits once
// (not once per record), and the loss is counted and reported.
TEST_F(SyslogHandlerTest, DeadCollectorDropsWithACountedReport) {
  CaptureFd err(2);
  make({{"transport", "tcp"}, {"port", std::to_string(freePort())}, {"queueSize", "4"}, {"maxBlockMs", "200"}});
  auto begin = std::chrono::steady_clock::now();
  publish(0, 40);
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
  EXPECT_LT(ms, 40 * 200 / 4) << "records after the first drop do not wait again";
  EXPECT_EQ(QlgSyslogHandler_droppedCount(handler_), 36u);
  release(handler_);
  std::string text = err.text();
  EXPECT_EQ(htest::count(text, "QLGSH0171W") + htest::count(text, "dropped 36 records"), 2u) << text;
}

}  // namespace
