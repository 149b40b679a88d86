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

/* Reads back what was written to a temporary stream. */
std::string contents(FILE* f) {
  fflush(f);
  rewind(f);
  std::string out;
  char buf[1024];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
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
  QlgI18Msg* msg = QlgI18Msg_create(nullptr, 0, 0, "old");
  ASSERT_NE(msg, nullptr);
  EXPECT_EQ(msg->catalog, nullptr);
  QlgI18Msg_setSet(msg, 7);
  QlgI18Msg_setKey(msg, 99);
  QlgI18Msg_setDefaultText(msg, "new %s");
  QlgI18Msg_setCatalog(msg, "other");
  EXPECT_EQ(msg->set, 7u);
  EXPECT_EQ(msg->key, 99u);
  EXPECT_STREQ(msg->catalog, "other");
  QlgI18Msg_addString(msg, "text");
  EXPECT_EQ(render(msg), "new text");
  QlgI18Msg_free(msg);
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
  QlgI18Msg_addString(msg, "name");
  QlgI18Msg_addInt(msg, 10);
  QlgI18Msg* copy = QlgI18Msg_copy(msg);
  ASSERT_NE(copy, nullptr);
  std::string expected = render(msg);
  QlgI18Msg_setDefaultText(msg, "changed");
  QlgI18Msg_addInt(msg, 3);
  EXPECT_EQ(render(copy), expected);
  EXPECT_NE(copy->defaultText, msg->defaultText);
  EXPECT_NE(copy->catalog, msg->catalog);
  EXPECT_NE(copy->parms, msg->parms);
  EXPECT_EQ(copy->catalogContext, &context);
  EXPECT_EQ(copy->set, 1u);
  EXPECT_EQ(copy->key, 31u);
  QlgI18Msg_free(msg);
  QlgI18Msg_free(copy);
}

// --- rendering -------------------------------------------------------------

TEST_F(QlgI18MsgTest, Message31FillsNameAndLengthAndKeepsTheCarriageReturn) {
  QlgI18Msg* msg = tableMessage(31);
  QlgI18Msg_addString(msg, "name");
  QlgI18Msg_addInt(msg, 10);
  EXPECT_EQ(render(msg), "QLGBC0031E Property 'name' must be 10 characters or less.\r");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, Message3TakesSetKeyAndCatalogInTheOrderAdded) {
  QlgI18Msg* msg = tableMessage(3);
  QlgI18Msg_addInt(msg, 4);
  QlgI18Msg_addInt(msg, 117);
  QlgI18Msg_addString(msg, "hwscan");
  EXPECT_EQ(render(msg),
            "QLGBC03E The message with set index 4 and key index 117 was not found in the "
            "message catalog hwscan.\r");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, PositionsSelectParametersRegardlessOfTextOrder) {
  QlgI18Msg* msg = QlgI18Msg_create(nullptr, 0, 0, "%2$s-%1$s");
  QlgI18Msg_addString(msg, "a");
  QlgI18Msg_addString(msg, "b");
  EXPECT_EQ(render(msg), "b-a");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, Message72UsesItsStringWithAMinimumWidthOfOne) {
  QlgI18Msg* msg = tableMessage(72);
  QlgI18Msg_addString(msg, "/var/log/trace.log");
  EXPECT_EQ(render(msg),
            "QLGMP0072W Could not read the active log file /var/log/trace.log during log file "
            "rollover.\r");
  QlgI18Msg_free(msg);

  // Width 1, not position 1: an empty name is padded to one blank.
  msg = tableMessage(72);
  QlgI18Msg_addString(msg, "");
  EXPECT_EQ(render(msg), "QLGMP0072W Could not read the active log file   during log file rollover.\r");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, EveryParameterKindIsFormattedByItsConversion) {
  QlgI18Msg* msg = QlgI18Msg_create(nullptr, 0, 0, "%1$c %2$d %3$ld %4$.2f %5$.3f %6$c %7$s");
  QlgI18Msg_addChar(msg, 'x');
  QlgI18Msg_addInt(msg, -5);
  QlgI18Msg_addLong(msg, 70000L);
  QlgI18Msg_addFloat(msg, 1.5f);
  QlgI18Msg_addDouble(msg, 2.25);
  QlgI18Msg_addUChar(msg, 'y');
  QlgI18Msg_addString(msg, "z");
  EXPECT_EQ(render(msg), "x -5 70000 1.50 2.250 y z");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, ConversionsWithoutParametersRenderAsTheDefaultText) {
  const char* text = "QLGBC0030E A value must be specified for the property '%s' .\r";
  QlgI18Msg* msg = QlgI18Msg_create(nullptr, 1, 30, text);
  EXPECT_EQ(render(msg), text);
  QlgI18Msg_free(msg);

  msg = QlgI18Msg_create(nullptr, 0, 0, "plain text, no conversions");
  EXPECT_EQ(render(msg), "plain text, no conversions");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, MissingParameterOrRejectedFormatFallsBackToTheDefaultText) {
  QlgI18Msg* msg = QlgI18Msg_create("qlgmsg", 1, 61, QlgMsgTable_text(61));
  QlgI18Msg_addString(msg, "only one");
  EXPECT_EQ(render(msg), QlgMsgTable_text(61));
  QlgI18Msg_free(msg);

  msg = QlgI18Msg_create(nullptr, 0, 0, "%.0f percent");
  QlgI18Msg_addDouble(msg, 12.5);
  EXPECT_EQ(render(msg), "%.0f percent");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, AMissingCatalogFallsBackToTheFormattedDefault) {
  QlgI18Msg* msg = QlgI18Msg_create("no-such-catalog", 3, 9, "value %d");
  QlgI18Msg_addInt(msg, 42);
  EXPECT_EQ(render(msg), "value 42");
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, RenderingIsRepeatableAndLeavesTheMessageUnchanged) {
  QlgI18Msg* msg = tableMessage(31);
  QlgI18Msg_addString(msg, "separator");
  QlgI18Msg_addInt(msg, 8);
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
  QlgI18Msg_addString(probe, "name");
  QlgI18Msg_addInt(probe, 10);
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
      EXPECT_EQ(render(copy), "t name 10") << "attempt " << i;
    }
    QlgI18Msg_free(copy);
  }
  QlgI18Msg_free(probe);
}

TEST_F(QlgI18MsgTest, RenderGivesTheTextTheDefaultOrNullWhenMemoryRunsOut) {
  QlgI18Msg* msg = tableMessage(31);
  QlgI18Msg_addString(msg, "name");
  QlgI18Msg_addInt(msg, 10);
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
    if (text) {
      std::string got = text;
      EXPECT_TRUE(got == full || got == QlgMsgTable_text(31)) << "attempt " << i << ": " << got;
      if (got != full) ++fellBack;
    }
    QlgMem_free(text);
  }
  EXPECT_GT(fellBack, 0);
  QlgI18Msg_free(msg);
}

TEST_F(QlgI18MsgTest, AParameterLostToMemoryLeavesTheDefaultText) {
  QlgI18Msg* msg = QlgI18Msg_create(nullptr, 0, 0, "%1$s");
  QlgMem_failAt(1);
  QlgI18Msg_addString(msg, "lost");
  QlgMem_failAt(0);
  EXPECT_EQ(render(msg), "%1$s");
  QlgI18Msg_free(msg);
}

// --- printing ----------------------------------------------------------------

TEST_F(QlgI18MsgTest, PrintWritesTextUnchangedToAnyStream) {
  FILE* f = tmpfile();
  ASSERT_NE(f, nullptr);
  QlgI18Msg_print(f, "caf\xc3\xa9 %s 100%\r");
  EXPECT_EQ(contents(f), "caf\xc3\xa9 %s 100%\r");
  fclose(f);
}

TEST_F(QlgI18MsgTest, PrintCutsTextAt4095Bytes) {
  std::string longText(5000, 'a');
  longText[4094] = 'b';
  longText[4095] = 'c';
  FILE* f = tmpfile();
  ASSERT_NE(f, nullptr);
  QlgI18Msg_print(f, longText.c_str());
  std::string written = contents(f);
  EXPECT_EQ(written.size(), 4095u);
  EXPECT_EQ(written.back(), 'b');
  fclose(f);

  ardeltest::CaptureFd err(2);
  QlgI18Msg_print(stderr, longText.c_str());
  EXPECT_EQ(err.text(), longText.substr(0, 4095));
}

TEST_F(QlgI18MsgTest, PrintToTheConsoleStreamsReachStdoutAndStderr) {
  std::string out, err;
  {
    ardeltest::CaptureFd capOut(1);
    ardeltest::CaptureFd capErr(2);
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
  FILE* f = tmpfile();
  ASSERT_NE(f, nullptr);
  QlgI18Msg_print(f, "still printed");
  EXPECT_EQ(contents(f), "still printed");
  fclose(f);
  ardeltest::CaptureFd err(2);
  QlgI18Msg_print(stderr, "console without converters");
  EXPECT_EQ(err.text(), "console without converters");
  QlgI18Msg_startup();
  QlgI18Msg_startup();  // idempotent
}

TEST_F(QlgI18MsgTest, PrintIgnoresNullStreamOrText) {
  FILE* f = tmpfile();
  ASSERT_NE(f, nullptr);
  QlgI18Msg_print(f, nullptr);
  QlgI18Msg_print(nullptr, "nowhere");
  EXPECT_EQ(contents(f), "");
  fclose(f);
}

}  // namespace
