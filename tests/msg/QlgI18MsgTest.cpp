// SPDX-License-Identifier: Apache-2.0
// Translatable messages: building, copying and rendering them (with the
// fallback to the unformatted default text), and printing through the 4095-byte work area.
#include <ardel/QlgI18Msg.h>

#include "msg/QlgMsgTable.h"
#include "support/TestSupport.h"

namespace {

std::string render(const QlgI18Msg* msg) {
  char* text = QlgI18Msg_render(msg);
  std::string out = text ? text : "<null>";
  QlgMem_free(text);
  return out;
}

void add(QlgI18Msg* m, const char* s) { QlgI18Msg_addString(m, s); }
void add(QlgI18Msg* m, int v) { QlgI18Msg_addInt(m, v); }
void add(QlgI18Msg* m, double v) { QlgI18Msg_addDouble(m, v); }

// Adds the parameters in order, renders, and frees the message.
template <class... A>
std::string renderWith(QlgI18Msg* msg, A... parms) {
  EXPECT_NE(msg, nullptr);
  (add(msg, parms), ...);
  std::string out = render(msg);
  QlgI18Msg_free(msg);
  return out;
}

QlgI18Msg* table(uint32_t key) { return QlgI18Msg_create(QLG_MSG_CATALOG, 1, key, QlgMsgTable_text(key)); }
QlgI18Msg* plain(const char* text) { return QlgI18Msg_create(nullptr, 0, 0, text); }

class QlgI18MsgTest : public ::testing::Test {
 protected:
  void SetUp() override { QlgI18Msg_startup(); }
  void TearDown() override { QlgI18Msg_shutdown(); }
};

TEST_F(QlgI18MsgTest, ParametersFillTheTextInTheOrderAddedOrTheDefaultTextIsShown) {
  EXPECT_EQ(renderWith(table(31), "name", 10), "QLGBC0031E Property 'name' must be 10 characters or less.\r");
  EXPECT_EQ(renderWith(table(3), 4, 117, "hwscan"),
            "QLGBC03E The message with set index 4 and key index 117 was not found in the message catalog hwscan.\r");
  EXPECT_EQ(renderWith(plain("%2$s-%1$s"), "a", "b"), "b-a");
  EXPECT_EQ(renderWith(table(72), ""), "QLGMP0072W Could not read the active log file   during log file rollover.\r")
      << "%1s is a width of one, not a position";
  EXPECT_EQ(renderWith(QlgI18Msg_create("no-such-catalog", 3, 9, "value %d"), 42), "value 42");
  EXPECT_EQ(renderWith(table(30)), QlgMsgTable_text(30)) << "no parameters";
  EXPECT_EQ(renderWith(table(61), "only one"), QlgMsgTable_text(61)) << "a parameter missing";
  EXPECT_EQ(renderWith(plain("%.0f percent"), 12.5), "%.0f percent") << "a rejected format";
  QlgI18Msg* msg = plain("%1$c %2$d %3$ld %4$.2f %5$.3f %6$c %7$s");
  QlgI18Msg_addChar(msg, 'x');
  QlgI18Msg_addInt(msg, -5);
  QlgI18Msg_addLong(msg, 70000L);
  QlgI18Msg_addFloat(msg, 1.5f);
  QlgI18Msg_addDouble(msg, 2.25);
  QlgI18Msg_addUChar(msg, 'y');
  EXPECT_EQ(renderWith(msg, "z"), "x -5 70000 1.50 2.250 y z");
}

TEST_F(QlgI18MsgTest, ACopySharesTheCatalogContextAndNullMessagesAreIgnored) {
  int context = 0;
  QlgI18Msg* msg = plain("t");
  msg->catalogContext = &context;
  QlgI18Msg* copy = QlgI18Msg_copy(msg);
  EXPECT_EQ(copy->catalogContext, &context);
  QlgI18Msg_free(copy);
  QlgI18Msg_free(msg);
  QlgI18Msg_setSet(nullptr, 1);
  QlgI18Msg_setKey(nullptr, 1);
  QlgI18Msg_setDefaultText(nullptr, "x");
  QlgI18Msg_setCatalog(nullptr, "x");
  QlgI18Msg_setLocale(nullptr, nullptr);
  QlgI18Msg_addChar(nullptr, 'c');
  QlgI18Msg_addString(nullptr, "x");
  QlgI18Msg_free(nullptr);
  EXPECT_EQ(QlgI18Msg_render(nullptr), nullptr);
  EXPECT_EQ(QlgI18Msg_copy(nullptr), nullptr);
}

TEST_F(QlgI18MsgTest, WhenMemoryRunsOutCreateAndCopyGiveNullOrAWholeMessageAndRenderFallsBack) {
  QlgI18Msg* probe = QlgI18Msg_create("qlgmsg", 1, 31, "t %1$s %2$d");
  add(probe, "name");
  add(probe, 10);
  ardeltest::sweepAllocations([] {}, [] { QlgI18Msg_free(QlgI18Msg_create("qlgmsg", 1, 31, "t")); }, [](long) {});
  QlgI18Msg* copy = nullptr;
  ardeltest::sweepAllocations([] {}, [&] {
    QlgI18Msg_free(copy);
    copy = QlgI18Msg_copy(probe);
  }, [&](long) {
    if (copy) { EXPECT_EQ(renderWith(copy), "t name 10"); }
    copy = nullptr;
  });
  QlgI18Msg_free(copy);
  int fellBack = 0;
  ardeltest::sweepAllocations([] {}, [&] {
    std::string got = render(probe);
    EXPECT_TRUE(got == "t name 10" || got == "t %1$s %2$d" || got == "<null>") << got;
    fellBack += got == "t %1$s %2$d";
  }, [](long) {});
  EXPECT_GT(fellBack, 0);
  QlgI18Msg_free(probe);
  QlgI18Msg* msg = plain("%1$s");
  QlgMem_failAt(1);
  add(msg, "lost");
  QlgMem_failAt(0);
  EXPECT_EQ(renderWith(msg), "%1$s") << "a lost parameter leaves the default text";
  QlgMem_failAt(1);
  EXPECT_EQ(QlgI18Msg_create("qlgmsg", 1, 31, "t"), nullptr);
  QlgMem_failAt(0);
}

TEST_F(QlgI18MsgTest, PrintWritesTextUnchangedCutAt4095BytesBeforeStartupAndAfterShutdown) {
  std::string longText(5000, 'a');
  longText[4094] = 'b';
  for (int round = 0; round < 2; round++) {
    ardeltest::CaptureFd out(1), err(2);
    QlgI18Msg_print(stdout, "caf\xc3\xa9 %s 100%\r\n");
    QlgI18Msg_print(stderr, longText.c_str());
    QlgI18Msg_print(stderr, nullptr);
    QlgI18Msg_print(nullptr, "nowhere");
    EXPECT_EQ(out.text(), "caf\xc3\xa9 %s 100%\r\n");
    EXPECT_EQ(err.text(), longText.substr(0, 4095));
    QlgI18Msg_shutdown();
    QlgI18Msg_shutdown();  // a second shutdown finds nothing to close
  }
  QlgI18Msg_startup();
  QlgI18Msg_startup();  // idempotent
}

}  // namespace
