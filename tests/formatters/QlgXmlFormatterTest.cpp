// SPDX-License-Identifier: Apache-2.0
// The XML formatter: exact layout, preamble, kind flags, and records read back by libxml2.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <ardel/QlgEvent.h>
#include <ardel/QlgToolkit.h>
#include "msg/QlgMsgTable.h"
#include "support/TestSupport.h"

namespace {

const int64_t kTime = 1236704966535;  // 2009-03-10 17:09:26.535 UTC
const char kTimeLine[] = " <Time Millis=\"1236704966535\">2009-03-10 17:09:26.535+00:00</Time>\n";

std::string take(char* text) {
  std::string s = text ? text : "<null>";
  return QlgMem_free(text), s;
}

class QlgXmlFormatterTest : public ::testing::Test {
 public:
  void SetUp() override {
    setenv("TZ", "UTC0", 1);
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    fmt_ = QlgObject_create(("test.xml" + std::to_string(++serial_)).c_str(), "qlg_xmlformatter");
    ASSERT_NE(fmt_, nullptr);
  }
  void TearDown() override {
    for (QlgEvent* e : events_) QlgEvent_free(e);
    QlgObject_release(fmt_);
  }
  QlgEvent* keep(QlgEvent* e) {
    e->time = kTime;
    events_.push_back(e);
    return e;
  }
  QlgEvent* trace(int level, const char* text) { return keep(QlgEvent_createTagged(level, nullptr, 0, 0, text, 0)); }
  std::string format(QlgEvent* e) { return take(fmt_->cls->slots.formatter.format(fmt_, e)); }

  static int serial_;
  QlgObject* fmt_ = nullptr;
  std::vector<QlgEvent*> events_;
};
int QlgXmlFormatterTest::serial_ = 0;

TEST_F(QlgXmlFormatterTest, RecordsHaveTheirElementsInTheFixedOrder) {
  // A catalogued error with identity.
  QlgEvent* e = keep(QlgEvent_createTagged(6000, "qlgmsg", 1, 20, QlgMsgTable_text(20), 0));
  QlgEvent_addStringProperty(e, "component", "C");
  QlgEvent_addStringProperty(e, "product", "P");
  EXPECT_EQ(format(e), std::string("<Message Id=\"QLGBC0020E\" Severity=\"ERROR\">\n") + kTimeLine +
           " <ProductId>P</ProductId>\n <Component>C</Component>\n"
           " <LogText><![CDATA[QLGBC0020E Out of memory.]]>&#13;</LogText>\n"
           " <TranslationInfo Type=\"XPG4\" Catalog=\"qlgmsg\" MsgKey=\"20\" SetId=\"1\"></TranslationInfo>\n"
           "</Message>\n");
  // A trace with zeros, free attributes and correlation.
  e = trace(3000, "scan");
  for (const char* k : {"qlg_prop_srcfile", "qlg_prop_srcfunction", "organization", "correlationId", "client"})
    QlgEvent_addStringProperty(e, k, k[0] == 'q' ? "f.c" : "v");
  QlgEvent_addIntProperty(e, "qlg_prop_srcline", 0);
  QlgEvent_addLongProperty(e, "threadId", -1);
  QlgEvent_addLongProperty(e, "processId", 0);
  QlgEvent_addStringProperty(e, "when", "now");
  EXPECT_EQ(format(e), std::string("<Trace Level=\"MIN\">\n") + kTimeLine +
           " <LogText><![CDATA[scan]]></LogText>\n"
           " <LogAttribs><Key>organization</Key><Value>v</Value><Key>when</Key><Value>now</Value></LogAttribs>\n"
           " <Source FileName=\"f.c\" Method=\"f.c\" Line=\"\"/>\n"
           " <Thread>4294967295</Thread>\n <Process></Process>\n"
           " <CorrelationId>v</CorrelationId>\n <Principal>v</Principal>\n</Trace>\n");
  EXPECT_EQ(format(trace(-9999, "x")), std::string("<Trace>\n") + kTimeLine +
           " <LogText><![CDATA[x]]></LogText>\n <Source FileName=\"None\" Method=\"None\"/>\n</Trace>\n")
      << "a trace without level or source";
  EXPECT_EQ(format(keep(QlgEvent_createTagged(-9999, "cat", 2, 0, "%s=%d", 507, "n", 502, 0, 0))),
            std::string("<Message Id=\"None\">\n") + kTimeLine +
           " <LogText><![CDATA[n=0]]></LogText>\n"
           " <TranslationInfo Type=\"XPG4\" Catalog=\"cat\" MsgKey=\"\" SetId=\"2\">"
           "<Param><![CDATA[n]]></Param><Param><![CDATA[0]]></Param></TranslationInfo>\n</Message>\n")
      << "a message without ID or level, with parameters";
}

TEST_F(QlgXmlFormatterTest, SingleIdentityIsWrittenOnceAfterEveryHeadRequest) {
  QlgObject_storeProperty(fmt_, "singleServer", "true");
  QlgObject_storeProperty(fmt_, "singleProduct", "yes");  // not a boolean: stays per record
  QlgEvent* e = trace(4000, "t");
  QlgEvent_addStringProperty(e, "server", "h.example");
  QlgEvent_addStringProperty(e, "serverFormat", "IP");
  QlgEvent_addStringProperty(e, "product", "P");
  const std::string server = " <Server Format=\"IP\">h.example</Server>\n";
  const std::string record = format(e);
  EXPECT_EQ(record.substr(0, server.size() + 6), server + "<Trace");
  EXPECT_NE(record.find("<ProductId>P</ProductId>", server.size()), std::string::npos);
  EXPECT_EQ(format(e).find("<Server"), std::string::npos);
  EXPECT_EQ(fmt_->cls->slots.formatter.getHead(fmt_), nullptr);
  EXPECT_EQ(format(e), record);
}

TEST_F(QlgXmlFormatterTest, OutOfMemoryGivesNoRecordOrAWholeOneWithItsPreamble) {
  QlgObject_storeProperty(fmt_, "singleServer", "true");
  QlgEvent* e = keep(QlgEvent_createTagged(5000, "qlgmsg", 1, 4, QlgMsgTable_text(4), 507, "a]]>b", 507, "o", 0));
  QlgEvent_addStringProperty(e, "server", "h");
  QlgEvent_addStringProperty(e, "free", "v");
  const std::string full = format(e), head = full.substr(0, full.find("<Message") + 8);
  std::string got;
  ardeltest::sweepAllocations([&] { EXPECT_EQ(fmt_->cls->slots.formatter.getHead(fmt_), nullptr); },
                              [&] { got = format(e); }, [&](long) {
    if (got == "<null>") got = format(e);  // no record: the next one still has the preamble
    // Rendering may fall back to the default text; preamble and frame stay whole.
    EXPECT_EQ(got.substr(0, head.size()), head);
    EXPECT_EQ(got.substr(got.size() - 11), "</Message>\n");
  });
}

// Content of the first element named name (depth first), or its attribute.
std::string readBack(xmlNode* node, const char* name, const char* attribute = nullptr) {
  for (xmlNode* n = node; n; n = n->next) {
    if (n->type == XML_ELEMENT_NODE && xmlStrEqual(n->name, BAD_CAST name)) {
      xmlChar* v = attribute ? xmlGetProp(n, BAD_CAST attribute) : xmlNodeGetContent(n);
      std::string s = v ? reinterpret_cast<const char*>(v) : "<none>";
      xmlFree(v);
      return s;
    }
    std::string inner = readBack(n->children, name, attribute);
    if (inner != "<absent>") return inner;
  }
  return "<absent>";
}

TEST_F(QlgXmlFormatterTest, AFileOfRecordsParsesAndReadsBackWhatWasLogged) {
  struct Case { const char* logged; const char* readBack; };
  const Case cases[] = {
      {"a < b && c > d \"q\" 'a'", "a < b && c > d \"q\" 'a'"},
      {"end ]]> and ]]]> twice]]", "end ]]> and ]]]> twice]]"},
      {"tab\there\nline\rcr\r\n", "tab\there\nline\rcr\r\n"},
      {"Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80", "Gr\xC3\xBC\xC3\x9F" "e \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80"},
      {"bell\x07 esc\x1B", "bell\xE2\x90\x87 esc\xE2\x90\x9B"},           // control pictures
      {"bad \xFF\xC3 utf8 \xEF\xBF\xBF", "bad \xEF\xBF\xBD\xEF\xBF\xBD utf8 \xEF\xBF\xBD"},
      {"", ""},
  };
  QlgObject_storeProperty(fmt_, "forceAsMessage", "true");
  for (const Case& c : cases) {
    QlgEvent* e = keep(QlgEvent_createTagged(4000, nullptr, 0, 0, "%s", 507, c.logged, 0));
    QlgEvent_addStringProperty(e, c.logged, c.logged);  // a free attribute's key and value
    QlgEvent_addStringProperty(e, "qlg_prop_srcfile", c.logged);
    QlgEvent_addStringProperty(e, "qlg_prop_srcfunction", "Entry Foo&lt;int&gt;::run");  // escaped by the caller
    std::string file = "<Log>" + format(e) + format(e) + "</Log>";
    xmlDoc* doc = xmlReadMemory(file.data(), static_cast<int>(file.size()), "log.xml", nullptr, XML_PARSE_NONET);
    ASSERT_NE(doc, nullptr) << "not well-formed:\n" << file;
    xmlNode* root = xmlDocGetRootElement(doc);
    for (auto at : {std::make_pair("LogText", ""), {"Param", ""}, {"Value", ""}, {"Key", ""}, {"Source", "FileName"}})
      EXPECT_EQ(readBack(root, at.first, *at.second ? at.second : nullptr), c.readBack) << at.first << "\n" << file;
    EXPECT_EQ(readBack(root, "Source", "Method"), "Entry Foo<int>::run");
    xmlFreeDoc(doc);
  }
}

}  // namespace
