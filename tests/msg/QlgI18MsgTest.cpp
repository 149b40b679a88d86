/*
 * Translatable messages: building, copying and rendering them (with the
 * fallback to the unformatted default text), and printing rendered text to
 * streams through the 4095-byte work area.
 */
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include <ardel/QlgI18Msg.h>
#include <ardel/QlgMem.h>
#include "msg/QlgMsgTable.h"
#include "support/TestSupport.h"
#include "util/QlgMemTest.h"

namespace {

/* Renders and frees; "<null>" for a null result. */
std::string render(const QlgI18Msg* msg) {
  char* text = QlgI18Msg_render(msg);
  std::string out = text ? text : "<null>";
  QlgMem_free(text);
  return out;
}

QlgI18Msg* tableMessage(uint32_t key) {
  return QlgI18Msg_create(QLG_MSG_CATALOG, 1, key, QlgMsgTable_text(key));
}
QlgI18Msg* plain(const char* text) { return QlgI18Msg_create(nullptr, 0, 0, text); }

void add(QlgI18Msg* m, const char* s) { QlgI18Msg_addString(m, s); }
void add(QlgI18Msg* m, int v) { QlgI18Msg_addInt(m, v); }
void add(QlgI18Msg* m, double v) { QlgI18Msg_addDouble(m, v); }

/* Adds the parameters in order, renders, and frees the message. */
template <class... A>
std::string renderWith(QlgI18Msg* msg, A... parms) {
  EXPECT_NE(msg, nullptr);
  (add(msg, parms), ...);
  std::string out = render(msg);
  QlgI18Msg_free(msg);
  return out;
}

/* What QlgI18Msg_print writes to a temporary stream. */
std::string printed(const char* text) {
  FILE* f = tmpfile();
  EXPECT_NE(f, nullptr);
  if (!f) return "<no stream>";
  QlgI18Msg_print(f, text);
  fflush(f);
  rewind(f);
  std::string out;
  char buf[1024];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  fclose(f);
  return out;
}

class QlgI18MsgTest : public ::testing::Test {
 protected:
  void SetUp() override { QlgI18Msg_startup(); }
  void TearDown() override {
    QlgMem_failAt(0);
    QlgI18Msg_shutdown();
  }
};

// --- building messages ---------------------------------------------------

TEST_F(QlgI18MsgTest, CreateKeepsItsOwnCopiesOfBothStrings) {
  char catalog[] = "qlgmsg";
  char text[] = "hello";
  QlgI18Msg* msg = QlgI18Msg_create(catalog, 1, 20, text);
  ASSERT_NE(msg, nullptr);
  catalog[0] = 'X';
  text[0] = 'J';
  EXPECT_STREQ(msg->catalog, "qlgmsg");
  EXPECT_STREQ(msg->defaultText, "hello");
  EXPECT_EQ(msg->set, 1u);
  EXPECT_EQ(msg->key, 20u);
  EXPECT_EQ(msg->parms, nullptr);
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, SettersReplaceNumbersAndText) {
  QlgI18Msg* msg = plain("old");
  ASSERT_NE(msg, nullptr);
  EXPECT_EQ(msg->catalog, nullptr);
  QlgI18Msg_setSet(msg, 7);
  QlgI18Msg_setKey(msg, 99);
  QlgI18Msg_setDefaultText(msg, "new %s");
  QlgI18Msg_setCatalog(msg, "other");
  EXPECT_EQ(msg->set, 7u);
  EXPECT_EQ(msg->key, 99u);
  EXPECT_STREQ(msg->catalog, "other");
  EXPECT_EQ(renderWith(msg, "text"), "new text");
}

TEST_F(QlgI18MsgTest, NullMessagesAreToleratedEverywhere) {
  QlgI18Msg_setSet(nullptr, 1);
  QlgI18Msg_setKey(nullptr, 1);
  QlgI18Msg_setDefaultText(nullptr, "x");
  QlgI18Msg_setCatalog(nullptr, "x");
  QlgI18Msg_setLocale(nullptr, nullptr);
  QlgI18Msg_addChar(nullptr, 'c');
  QlgI18Msg_addInt(nullptr, 1);
  QlgI18Msg_addLong(nullptr, 1);
  QlgI18Msg_addFloat(nullptr, 1.0f);
  QlgI18Msg_addDouble(nullptr, 1.0);
  QlgI18Msg_addUChar(nullptr, 1);
  QlgI18Msg_addString(nullptr, "x");
  QlgI18Msg_free(nullptr);
  EXPECT_EQ(QlgI18Msg_render(nullptr), nullptr);
  EXPECT_EQ(QlgI18Msg_copy(nullptr), nullptr);
}

TEST_F(QlgI18MsgTest, CopyIsDeepButSharesTheCatalogContext) {
  int context = 0;
  QlgI18Msg* msg = QlgI18Msg_create("qlgmsg", 1, 31, QlgMsgTable_text(31));
  ASSERT_NE(msg, nullptr);
  msg->catalogContext = &context;
  add(msg, "name");
  add(msg, 10);
  QlgI18Msg* copy = QlgI18Msg_copy(msg);
  ASSERT_NE(copy, nullptr);
  std::string expected = render(msg);
  QlgI18Msg_setDefaultText(msg, "changed");
  add(msg, 3);
  EXPECT_NE(copy->defaultText, msg->defaultText);
  EXPECT_NE(copy->catalog, msg->catalog);
  EXPECT_NE(copy->parms, msg->parms);
  EXPECT_EQ(copy->catalogContext, &context);
  EXPECT_EQ(copy->set, 1u);
  EXPECT_EQ(copy->key, 31u);
  EXPECT_EQ(renderWith(copy), expected);
  QlgI18Msg_free(msg);
}

// --- rendering -------------------------------------------------------------

TEST_F(QlgI18MsgTest, TableMessagesTakeTheirParametersInTheOrderAddedAndKeepTheCarriageReturn) {
  EXPECT_EQ(renderWith(tableMessage(31), "name", 10),
            "QLGBC0031E Property 'name' must be 10 characters or less.\r");
  EXPECT_EQ(renderWith(tableMessage(3), 4, 117, "hwscan"),
            "QLGBC03E The message with set index 4 and key index 117 was not found in the "
            "message catalog hwscan.\r");
  EXPECT_EQ(renderWith(plain("%2$s-%1$s"), "a", "b"), "b-a");
}

TEST_F(QlgI18MsgTest, Message72UsesItsStringWithAMinimumWidthOfOne) {
  EXPECT_EQ(renderWith(tableMessage(72), "/var/log/trace.log"),
            "QLGMP0072W Could not read the active log file /var/log/trace.log during log file "
            "rollover.\r");
  // Width 1, not position 1: an empty name is padded to one blank.
  EXPECT_EQ(renderWith(tableMessage(72), ""),
            "QLGMP0072W Could not read the active log file   during log file rollover.\r");
}

TEST_F(QlgI18MsgTest, EveryParameterKindIsFormattedByItsConversion) {
  QlgI18Msg* msg = plain("%1$c %2$d %3$ld %4$.2f %5$.3f %6$c %7$s");
  QlgI18Msg_addChar(msg, 'x');
  QlgI18Msg_addInt(msg, -5);
  QlgI18Msg_addLong(msg, 70000L);
  QlgI18Msg_addFloat(msg, 1.5f);
  QlgI18Msg_addDouble(msg, 2.25);
  QlgI18Msg_addUChar(msg, 'y');
  EXPECT_EQ(renderWith(msg, "z"), "x -5 70000 1.50 2.250 y z");
}

TEST_F(QlgI18MsgTest, WithoutParametersOrWithAMissingOneOrARejectedFormatTheDefaultTextIsShown) {
  const char* text = "QLGBC0030E A value must be specified for the property '%s' .\r";
  EXPECT_EQ(renderWith(QlgI18Msg_create(nullptr, 1, 30, text)), text);
  EXPECT_EQ(renderWith(plain("plain text, no conversions")), "plain text, no conversions");
  EXPECT_EQ(renderWith(QlgI18Msg_create("qlgmsg", 1, 61, QlgMsgTable_text(61)), "only one"),
            QlgMsgTable_text(61));
  EXPECT_EQ(renderWith(plain("%.0f percent"), 12.5), "%.0f percent");
}

TEST_F(QlgI18MsgTest, AMissingCatalogFallsBackToTheFormattedDefault) {
  EXPECT_EQ(renderWith(QlgI18Msg_create("no-such-catalog", 3, 9, "value %d"), 42), "value 42");
}

TEST_F(QlgI18MsgTest, RenderingIsRepeatableAndLeavesTheMessageUnchanged) {
  QlgI18Msg* msg = tableMessage(31);
  add(msg, "separator");
  add(msg, 8);
  std::string first = render(msg);
  EXPECT_EQ(render(msg), first);
  EXPECT_STREQ(msg->defaultText, QlgMsgTable_text(31));
  QlgI18Msg_free(msg);
}

// --- out of memory -----------------------------------------------------------

TEST_F(QlgI18MsgTest, CreateAndCopyGiveNullOrAWholeMessageWhenMemoryRunsOut) {
  QlgMem_failAt(0);
  QlgI18Msg* probe = QlgI18Msg_create("qlgmsg", 1, 31, "t %1$s %2$d");
  long creates = QlgMem_allocCount();
  add(probe, "name");
  add(probe, 10);
  for (long i = 1; i <= creates; ++i) {
    QlgMem_failAt(i);
    QlgI18Msg* msg = QlgI18Msg_create("qlgmsg", 1, 31, "t");
    QlgMem_failAt(0);
    EXPECT_EQ(msg, nullptr) << "attempt " << i;
    QlgI18Msg_free(msg);
  }
  QlgMem_failAt(0);
  QlgI18Msg_free(QlgI18Msg_copy(probe));
  long copies = QlgMem_allocCount();
  ASSERT_GT(copies, creates);
  for (long i = 1; i <= copies; ++i) {
    QlgMem_failAt(i);
    QlgI18Msg* copy = QlgI18Msg_copy(probe);
    QlgMem_failAt(0);
    if (copy) {
      EXPECT_EQ(renderWith(copy), "t name 10") << "attempt " << i;
    }
  }
  QlgI18Msg_free(probe);
}

TEST_F(QlgI18MsgTest, RenderGivesTheTextTheDefaultOrNullWhenMemoryRunsOut) {
  QlgI18Msg* msg = tableMessage(31);
  add(msg, "name");
  add(msg, 10);
  const std::string full = "QLGBC0031E Property 'name' must be 10 characters or less.\r";
  QlgMem_failAt(0);
  EXPECT_EQ(render(msg), full);
  long attempts = QlgMem_allocCount();
  ASSERT_GT(attempts, 0);
  int fellBack = 0;
  for (long i = 1; i <= attempts; ++i) {
    QlgMem_failAt(i);
    char* text = QlgI18Msg_render(msg);
    ASSERT_TRUE(QlgMem_failed()) << "attempt " << i;
    QlgMem_failAt(0);
    std::string got = text ? text : full;
    EXPECT_TRUE(got == full || got == QlgMsgTable_text(31)) << "attempt " << i << ": " << got;
    fellBack += got != full;
    QlgMem_free(text);
  }
  EXPECT_GT(fellBack, 0);
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, AParameterLostToMemoryLeavesTheDefaultText) {
  QlgI18Msg* msg = plain("%1$s");
  QlgMem_failAt(1);
  add(msg, "lost");
  QlgMem_failAt(0);
  EXPECT_EQ(renderWith(msg), "%1$s");
}

// --- printing ----------------------------------------------------------------

TEST_F(QlgI18MsgTest, PrintWritesTextUnchangedAndIgnoresNullStreamOrText) {
  EXPECT_EQ(printed("caf\xc3\xa9 %s 100%\r"), "caf\xc3\xa9 %s 100%\r");
  EXPECT_EQ(printed(nullptr), "");
  QlgI18Msg_print(nullptr, "nowhere");
}

TEST_F(QlgI18MsgTest, PrintCutsTextAt4095Bytes) {
  std::string longText(5000, 'a');
  longText[4094] = 'b';
  longText[4095] = 'c';
  EXPECT_EQ(printed(longText.c_str()), longText.substr(0, 4095));
  ardeltest::CaptureFd err(2);
  QlgI18Msg_print(stderr, longText.c_str());
  EXPECT_EQ(err.text(), longText.substr(0, 4095));
}

TEST_F(QlgI18MsgTest, PrintToTheConsoleStreamsReachStdoutAndStderr) {
  std::string out, err;
  {
    ardeltest::CaptureFd capOut(1), capErr(2);
    QlgI18Msg_print(stdout, "to standard output\n");
    QlgI18Msg_print(stderr, "to standard error\r\n");
    out = capOut.text();
    err = capErr.text();
  }
  EXPECT_EQ(out, "to standard output\n");
  EXPECT_EQ(err, "to standard error\r\n");
}

TEST_F(QlgI18MsgTest, PrintWorksBeforeStartupAndAfterShutdown) {
  QlgI18Msg_shutdown();
  QlgI18Msg_shutdown();  // a second shutdown finds nothing to close
  EXPECT_EQ(printed("still printed"), "still printed");
  {
    ardeltest::CaptureFd err(2);
    QlgI18Msg_print(stderr, "console without converters");
    EXPECT_EQ(err.text(), "console without converters");
  }
  QlgI18Msg_startup();
  QlgI18Msg_startup();  // idempotent
}

}  // namespace
