// SPDX-License-Identifier: Apache-2.0
// The syslog handler's journal transport, received on a socket of the test's
// own in place of the journal's, and the source location of a trace call in
// both record kinds.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <map>

#include <ardel/QlgEvent.h>
#include <ardel/QlgToolkit.h>
#include "handlers/QlgSyslogHandler.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

// A trace event as a trace call makes it: the source location beside the
// property set, not in it.
QlgEvent* traceEvent(const char* text) {
  QlgEvent* e = QlgEvent_createTagged(6000, nullptr, 0, 0, text, 0);
  e->srcFile = "scan.c";
  e->srcFunction = "run";
  e->srcLine = 88;
  e->srcFlags = QLG_EVENT_SRC_FILE | QLG_EVENT_SRC_FUNCTION;
  QlgEvent_addStringProperty(e, "product", "Scan");
  return e;
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

TEST(SyslogJournal, ADatagramCarriesEveryFieldAndATraceCallsSourceLocation) {
  ASSERT_TRUE(QlgToolkit_initialize(nullptr));
  TempDir dir;
  std::string path = dir.file("journal.sock");
  int s = socket(AF_UNIX, SOCK_DGRAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, path.c_str());
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);

  QlgObject* h = QlgObject_create("test.journal", "qlg_sysloghandler");
  for (auto kv : {std::make_pair("transport", "journald"), {"appName", "scanner"}, {"facility", "local3"},
                  {"socketPath", path.c_str()}})
    QlgObject_storeProperty(h, kv.first, kv.second);
  QlgEvent* e = traceEvent("QLGBC0020E Out of memory.\nsecond line\r\n");
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
  QlgSyslogHandlerData* data = static_cast<QlgSyslogHandlerData*>(h->data);
  // Room for the other fields, the 18 bytes kept for the message's framing
  // and 3 of its text: the euro sign does not fit whole.
  const char* text = "x\xE2\x82\xAC yz";
  size_t others = QlgSyslogHandler_formatRecord(data, e, text, buf, sizeof buf) - strlen("MESSAGE=\n") - strlen(text);
  size_t len = QlgSyslogHandler_formatRecord(data, e, text, buf, others + 18 + 3);
  std::map<std::string, std::string> cut = fieldsOf(std::string(buf, len));
  EXPECT_EQ(cut["CODE_FUNC"] + "|" + cut["MESSAGE"], "run|x") << "no 'malformed' entry: " << cut.count("malformed");

  // The RFC 5424 record puts the same location into its structured data.
  data->transport = QLG_SYSLOG_UNIX;
  len = QlgSyslogHandler_formatRecord(data, e, "t", buf, sizeof buf);
  EXPECT_NE(std::string(buf, len).find("[src@32473 file=\"scan.c\" func=\"run\" line=\"88\"]"), std::string::npos)
      << std::string(buf, len);
  QlgEvent_free(e);
  QlgObject_release(h);
  close(s);
}

}  // namespace
