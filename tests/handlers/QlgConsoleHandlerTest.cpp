/*
 * Handler base and the console and standard-error handlers: where heads,
 * events and tails are written, the enabled switch, chaining to listeners,
 * and the counted link from a handler to its formatter.
 */
#include <gtest/gtest.h>

#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "handlers/QlgConsoleHandler.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

namespace {

using ardeltest::bareMessage;
using ardeltest::CaptureFd;
using ardeltest::headText;
using ardeltest::tailText;

char* noText(QlgObject*, QlgEvent*) { return nullptr; }

void registerTestClasses() {
  /* Bare message lines keep the expectations free of time stamps. */
  QlgClass_registerFormatter("test_bareformatter", nullptr, nullptr, nullptr, nullptr,
                             bareMessage, nullptr, nullptr, nullptr);
  QlgClass_registerFormatter("test_headtailformatter", nullptr, nullptr, nullptr, nullptr,
                             bareMessage, headText, tailText, nullptr);
  QlgClass_registerFormatter("test_mutedformatter", nullptr, nullptr, nullptr, nullptr, noText,
                             nullptr, nullptr, nullptr);
}

class QlgConsoleHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    registerTestClasses();
    static int serial = 0;
    prefix_ = "test.console" + std::to_string(++serial) + ".";
  }
  void TearDown() override {
    for (QlgEvent* e : events_) QlgEvent_free(e);
    for (auto it = objects_.rbegin(); it != objects_.rend(); ++it) QlgObject_release(*it);
  }

  QlgObject* make(const char* name, const char* cls) {
    QlgObject* obj = QlgObject_create((prefix_ + name).c_str(), cls);
    EXPECT_NE(obj, nullptr) << name;
    if (obj) objects_.push_back(obj);
    return obj;
  }
  /* A handler of class cls whose formatter is a new object of fmtClass. */
  QlgObject* handlerWith(const char* name, const char* cls, const char* fmtClass) {
    QlgObject* h = make(name, cls);
    QlgObject* f = make((std::string(name) + "Fmt").c_str(), fmtClass);
    QlgHandler_setFormatter(h, f);
    return h;
  }
  QlgEvent* event(const char* text) {
    QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, text, 0);
    EXPECT_NE(e, nullptr);
    if (e) events_.push_back(e);
    return e;
  }
  void publish(QlgObject* handler, QlgEvent* e) { handler->cls->slots.handler.publish(handler, e); }

  std::string prefix_;
  std::vector<QlgObject*> objects_;
  std::vector<QlgEvent*> events_;
};

// --- where the text goes -------------------------------------------------------

TEST_F(QlgConsoleHandlerTest, ConsoleWritesToStandardOutputStderrToStandardErrorWithItsHeadOnOutput) {
  struct { const char *cls, *fmt, *out, *err; } cases[] = {
      {"qlg_consolehandler", "test_bareformatter", "first\nsecond\n", ""},
      {"qlg_stderrhandler", "test_headtailformatter", "HEAD\n", "first\nsecond\n"}};
  for (const auto& c : cases) {
    QlgObject* h = handlerWith(c.cls, c.cls, c.fmt);
    CaptureFd out(1), err(2);
    publish(h, event("first"));
    publish(h, event("second"));
    EXPECT_EQ(out.text(), c.out) << c.cls;
    EXPECT_EQ(err.text(), c.err) << c.cls;
  }
}

TEST_F(QlgConsoleHandlerTest, TheDefaultFormatterWritesABasicLine) {
  QlgObject* h = make("basic", "qlg_consolehandler");
  QlgObject* fmt = QlgHandler_getFormatter(h);
  ASSERT_NE(fmt, nullptr);
  EXPECT_STREQ(fmt->name, "ardel.defaultFormatter");
  QlgObject_release(fmt);
  QlgEvent* e = event("plain");
  e->time = 1236870000123LL;
  CaptureFd out(1);
  publish(h, e);
  std::string line = out.text();
  ASSERT_GT(line.size(), 30u);
  EXPECT_EQ(line.substr(19, 4), ".123");
  EXPECT_EQ(line.substr(line.size() - 7), " plain\n");
}

TEST_F(QlgConsoleHandlerTest, TextLongerThanTheWorkAreaIsCutAt4095Bytes) {
  QlgObject* h = handlerWith("long", "qlg_consolehandler", "test_bareformatter");
  std::string text(6000, 'x');
  CaptureFd out(1);
  publish(h, event(text.c_str()));
  EXPECT_EQ(out.text(), std::string(4095, 'x'));
}

// --- head and tail -----------------------------------------------------------

/* The head once, before the first event or at open (an open after it adds
   nothing); the tail once at close, and none before a head was written. */
TEST_F(QlgConsoleHandlerTest, HeadAndTailAreWrittenOnceEachOnStandardOutput) {
  QlgObject* h = handlerWith("openclose", "qlg_stderrhandler", "test_headtailformatter");
  CaptureFd out(1), err(2);
  QlgConsoleHandler_close(h);
  publish(h, event("a"));
  QlgConsoleHandler_open(h);
  publish(h, event("b"));
  QlgConsoleHandler_close(h);
  QlgConsoleHandler_close(h);
  QlgObject* o = handlerWith("open", "qlg_consolehandler", "test_headtailformatter");
  QlgConsoleHandler_open(o);
  QlgConsoleHandler_open(o);
  EXPECT_EQ(out.text(), "HEAD\nTAIL\nHEAD\n");
  EXPECT_EQ(err.text(), "a\nb\n");
}

TEST_F(QlgConsoleHandlerTest, ReleasingTheLastUserReferenceWritesTheTail) {
  QlgObject* h = QlgObject_create((prefix_ + "released").c_str(), "qlg_consolehandler");
  ASSERT_NE(h, nullptr);
  QlgObject* f = make("releasedFmt", "test_headtailformatter");
  QlgHandler_setFormatter(h, f);
  CaptureFd out(1);
  publish(h, event("x"));
  QlgObject_release(h);
  EXPECT_EQ(out.text(), "HEAD\nx\nTAIL\n");
}

// --- the enabled switch and chaining ---------------------------------------------

/* The first handler writes to standard output and passes events on to a
   stderr handler; what it writes and what it forwards depend on its setup. */
TEST_F(QlgConsoleHandlerTest, EventsArePassedOnToListenersWithOrWithoutTextButNotWhileLoggingIsOff) {
  struct { const char *rule, *fmt; bool off; const char *out, *err; } cases[] = {
      {"passed on", "test_bareformatter", false, "both\n", "both\n"},
      {"formatter gives no text", "test_mutedformatter", false, "", "both\n"},
      {"no formatter", nullptr, false, "", "both\n"},
      {"logging off: no output, no forwarding", "test_headtailformatter", true, "", ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.rule);
    std::string name = std::string("chain") + std::to_string(objects_.size());
    QlgObject* first = c.fmt ? handlerWith(name.c_str(), "qlg_consolehandler", c.fmt)
                             : make(name.c_str(), "qlg_consolehandler");
    if (!c.fmt) {
      QlgHandler_setFormatter(first, nullptr);
      EXPECT_EQ(QlgHandler_getFormatter(first), nullptr);
    }
    QlgObject_addListener(first, handlerWith((name + "b").c_str(), "qlg_stderrhandler", "test_bareformatter"));
    if (c.off) QlgObject_storeProperty(first, "logging", "off");
    CaptureFd out(1), err(2);
    publish(first, event("both"));
    EXPECT_EQ(out.text(), c.out);
    EXPECT_EQ(err.text(), c.err);
    if (c.off) { EXPECT_EQ(*static_cast<unsigned char*>(first->data), 0) << "no head while disabled"; }
  }
}

TEST_F(QlgConsoleHandlerTest, MissingInstanceDataOrArgumentsWriteNothing) {
  QlgObject* h = handlerWith("nodata", "qlg_consolehandler", "test_headtailformatter");
  void* data = h->data;
  h->data = nullptr;  // as after a failed create
  CaptureFd out(1);
  publish(h, event("lost"));
  QlgConsoleHandler_open(h);
  QlgConsoleHandler_close(h);
  h->data = data;
  QlgConsoleHandler_write(nullptr, event("x"), stdout);
  QlgConsoleHandler_write(h, nullptr, stdout);
  QlgConsoleHandler_publish(nullptr, nullptr);
  QlgStderrHandler_publish(nullptr, nullptr);
  QlgConsoleHandler_open(nullptr);
  QlgConsoleHandler_close(nullptr);
  EXPECT_EQ(out.text(), "");
}

// --- the formatter link ------------------------------------------------------------

TEST_F(QlgConsoleHandlerTest, FormatterNameInstallsAnExistingFormatter) {
  QlgObject* h = make("named", "qlg_consolehandler");
  QlgObject* f = make("namedFmt", "test_bareformatter");
  QlgObject_storeProperty(h, "formatterName", f->name);
  QlgObject* got = QlgHandler_getFormatter(h);
  EXPECT_EQ(got, f);
  QlgObject_release(got);
  CaptureFd out(1);
  publish(h, event("via name"));
  EXPECT_EQ(out.text(), "via name\n");
}

TEST_F(QlgConsoleHandlerTest, ReplacingTheFormatterReleasesExactlyOneReference) {
  QlgObject* h1 = make("ref1", "qlg_consolehandler");
  QlgObject* h2 = make("ref2", "qlg_consolehandler");
  QlgObject* shared = QlgHandler_getFormatter(h1);
  ASSERT_NE(shared, nullptr);
  int before = shared->refCount;
  QlgObject* f = make("refFmt", "test_bareformatter");
  int fBefore = f->refCount;
  QlgObject_storeProperty(h1, "formatterName", f->name);
  EXPECT_EQ(shared->refCount, before - 1);
  EXPECT_EQ(f->refCount, fBefore + 1);
  // The shared default lives on while the other handler holds it.
  QlgObject* still = QlgHandler_getFormatter(h2);
  EXPECT_EQ(still, shared);
  QlgObject_release(still);
  QlgObject_release(shared);
  QlgHandler_setFormatter(h1, f);  // installing the same formatter again changes nothing
  EXPECT_EQ(f->refCount, fBefore + 1);
}

TEST_F(QlgConsoleHandlerTest, AnAbsentOrUnknownFormatterNameLeavesTheFormatterUnchanged) {
  QlgObject* h = handlerWith("keep", "qlg_consolehandler", "test_bareformatter");
  QlgObject* before = QlgHandler_getFormatter(h);
  QlgHandler_propertyChanged(h, "formatterName");  // the property is not set
  for (int unknown = 0; unknown < 2; unknown++) {
    if (unknown) {
      CaptureFd err(2);  // the toolkit reports the missing class
      QlgObject_storeProperty(h, "formatterName", (prefix_ + "neverDefined").c_str());
    }
    QlgObject* after = QlgHandler_getFormatter(h);
    EXPECT_EQ(after, before) << (unknown ? "unknown name" : "absent name");
    QlgObject_release(after);
  }
  QlgObject_release(before);
}

TEST_F(QlgConsoleHandlerTest, FormatterNameCreatesAFormatterFromItsConfiguration) {
  ardeltest::inChild([] {
    QlgToolkit_shutdown();  // start over so that the file below is read
    ardeltest::TempDir dir;
    std::string path = dir.write("TyxTrace.properties",
                                 "test.fmtByName.className=qlg_basicformatter\n"
                                 "test.fmtByName.separator=|\n"
                                 "test.handlerByName.className=qlg_consolehandler\n"
                                 "test.handlerByName.formatterName=test.fmtByName\n");
    ASSERT_TRUE(QlgToolkit_initialize(path.c_str()));
    QlgObject* h = QlgObject_create("test.handlerByName", nullptr);
    ASSERT_NE(h, nullptr);
    QlgObject* f = QlgHandler_getFormatter(h);
    ASSERT_NE(f, nullptr);
    EXPECT_STREQ(f->name, "test.fmtByName");
    ASSERT_NE(f->field1.text, nullptr);
    EXPECT_STREQ(f->field1.text, "|");
    QlgObject_release(f);
    QlgObject_release(h);
  });
}

TEST_F(QlgConsoleHandlerTest, HandlerOperationsAnswerNullForNonHandlers) {
  QlgObject* f = make("notAHandler", "test_headtailformatter");
  QlgEvent* e = event("x");
  EXPECT_EQ(QlgHandler_format(f, e), nullptr);
  EXPECT_EQ(QlgHandler_getHead(f), nullptr);
  EXPECT_EQ(QlgHandler_getTail(f), nullptr);
  EXPECT_EQ(QlgHandler_getFormatter(f), nullptr);
  QlgHandler_setFormatter(f, f);
  EXPECT_EQ(QlgHandler_format(nullptr, e), nullptr);
  EXPECT_EQ(QlgHandler_getHead(nullptr), nullptr);
  EXPECT_EQ(QlgHandler_getFormatter(nullptr), nullptr);
  QlgHandler_setFormatter(nullptr, f);
  QlgHandler_propertyChanged(nullptr, "formatterName");
  /* A handler whose formatter is not a formatter formats nothing. */
  QlgObject* h = make("wrongKind", "qlg_consolehandler");
  QlgHandler_setFormatter(h, make("wrongKindOther", "qlg_consolehandler"));
  EXPECT_EQ(QlgHandler_format(h, e), nullptr);
  EXPECT_EQ(QlgHandler_getHead(h), nullptr);
  QlgHandler_setFormatter(h, nullptr);
}

}  // namespace
