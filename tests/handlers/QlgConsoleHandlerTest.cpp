// SPDX-License-Identifier: Apache-2.0
// Handler base and the console and standard-error handlers: where heads,
// events and tails are written, the enabled switch, chaining to listeners,
// and the counted link from a handler to its formatter.
#include "handlers/HandlerHarness.h"
#include "handlers/QlgConsoleHandler.h"

namespace {

using namespace htest;

char* noText(QlgObject*, QlgEvent*) { return nullptr; }

class QlgConsoleHandlerTest : public htest::HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    QlgClass_registerFormatter("test_muted", nullptr, nullptr, nullptr, nullptr, noText, nullptr, nullptr, nullptr);
    x_ = QlgEvent_createTagged(3000, nullptr, 0, 0, "x", 0);
  }
  void TearDown() override {
    QlgEvent_free(x_);
    HandlerTest::TearDown();
  }
  void publish(QlgObject* h, const char* text) { htest::publish(h, 3000, text); }

  QlgEvent* x_ = nullptr;  // for calls that only need some event
};

TEST_F(QlgConsoleHandlerTest, HeadsGoToStandardOutputOnceEventsToTheirStreamAndTheTailAtCloseOrRelease) {
  struct { const char* cls; bool release; const char *out, *err; } cases[] = {
      {"qlg_consolehandler", false, "HEAD\nfirst\nsecond\nTAIL\n", ""},
      {"qlg_stderrhandler", false, "HEAD\nTAIL\n", "first\nsecond\n"},
      {"qlg_consolehandler", true, "HEAD\nfirst\nsecond\nTAIL\n", ""}};
  for (const auto& c : cases) {
    QlgObject* h = handler(c.cls, "test_headtail");
    CaptureFd out(1), err(2);
    QlgConsoleHandler_close(h);  // never wrote its head: no tail
    publish(h, "first");
    QlgConsoleHandler_open(h);
    publish(h, "second");
    c.release ? release(h) : QlgConsoleHandler_close(h);
    if (!c.release) QlgConsoleHandler_close(h);
    EXPECT_EQ(out.text(), c.out) << c.cls;
    EXPECT_EQ(err.text(), c.err) << c.cls;
  }
  CaptureFd out(1);
  htest::publish(make("qlg_consolehandler"), 3000, "plain", [](QlgEvent* e) { e->time = 1236870000123LL; });
  publish(handler("qlg_consolehandler", "test_bare"), std::string(6000, 'x').c_str());
  std::string text = out.text();
  ASSERT_GT(text.size(), 30u);
  EXPECT_EQ(text.substr(19, 4), ".123") << "the default formatter's basic line";
  EXPECT_EQ(text.substr(text.find('\n') - 6), " plain\n" + std::string(4095, 'x')) << "cut at the 4095-byte work area";
}

// The first handler writes to standard output and passes events on to a
// stderr handler; what it writes and forwards depend on its setup.
TEST_F(QlgConsoleHandlerTest, EventsArePassedOnWithOrWithoutTextButNotWhileLoggingIsOff) {
  struct { const char* fmt; bool off; const char *out, *err; } cases[] = {
      {"test_bare", false, "both\n", "both\n"}, {"test_muted", false, "", "both\n"},
      {nullptr, false, "", "both\n"}, {"test_headtail", true, "", ""}};
  for (const auto& c : cases) {
    QlgObject* first = handler("qlg_consolehandler", c.fmt);
    QlgObject_addListener(first, handler("qlg_stderrhandler", "test_bare"));
    if (c.off) QlgObject_storeProperty(first, "logging", "off");
    CaptureFd out(1), err(2);
    publish(first, "both");
    EXPECT_EQ(out.text(), c.out) << (c.fmt ? c.fmt : "no formatter");
    EXPECT_EQ(err.text(), c.err);
  }
  QlgObject* h = handler("qlg_consolehandler", "test_headtail");
  void* data = h->data;
  h->data = nullptr;  // as after a failed create
  CaptureFd out(1);
  publish(h, "lost");
  QlgConsoleHandler_open(h);
  QlgConsoleHandler_close(h);
  h->data = data;
  QlgConsoleHandler_write(nullptr, x_, stdout), QlgConsoleHandler_write(h, nullptr, stdout);
  QlgConsoleHandler_publish(nullptr, nullptr), QlgStderrHandler_publish(nullptr, nullptr);
  QlgConsoleHandler_open(nullptr), QlgConsoleHandler_close(nullptr);
  EXPECT_EQ(out.text(), "");
}

TEST_F(QlgConsoleHandlerTest, FormatterNameInstallsAFormatterCountingOneReferenceAndUnknownNamesChangeNothing) {
  QlgObject *h1 = make("qlg_consolehandler"), *h2 = make("qlg_consolehandler");
  QlgObject* shared = QlgHandler_getFormatter(h1);
  ASSERT_STREQ(shared->name, "ardel.defaultFormatter");
  int before = shared->refCount;
  QlgObject* f = make("test_bare");
  int fBefore = f->refCount;
  QlgHandler_propertyChanged(h1, "formatterName");  // not set: nothing happens
  QlgObject_storeProperty(h1, "formatterName", f->name);
  EXPECT_EQ(shared->refCount, before - 1);
  EXPECT_EQ(f->refCount, fBefore + 1);
  QlgHandler_setFormatter(h1, f);  // the same formatter again changes nothing
  EXPECT_EQ(f->refCount, fBefore + 1);
  ardeltest::stderrOf([&] { QlgObject_storeProperty(h1, "formatterName", (prefix_ + "neverDefined").c_str()); });
  QlgObject *got = QlgHandler_getFormatter(h1), *still = QlgHandler_getFormatter(h2);
  EXPECT_EQ(got, f);
  EXPECT_EQ(still, shared) << "the shared default lives on while another handler holds it";
  for (QlgObject* o : {got, still, shared}) QlgObject_release(o);
  CaptureFd out(1);
  publish(h1, "via name");
  EXPECT_EQ(out.text(), "via name\n");
  char* head = QlgHandler_getHead(handler("qlg_consolehandler", "test_headtail"));
  EXPECT_STREQ(head, "HEAD\n");
  QlgMem_free(head);
  EXPECT_EQ(QlgHandler_getTail(h2), nullptr);
  QlgObject* notAHandler = make("test_headtail");
  QlgHandler_setFormatter(h2, h1);  // a formatter of the wrong kind formats nothing
  EXPECT_EQ(QlgHandler_format(h2, x_), nullptr);
  EXPECT_EQ(QlgHandler_getHead(h2), nullptr);
  QlgHandler_setFormatter(h2, nullptr);
  for (QlgObject* o : {notAHandler, static_cast<QlgObject*>(nullptr)}) {
    EXPECT_TRUE(QlgHandler_format(o, x_) == nullptr && QlgHandler_getHead(o) == nullptr &&
                QlgHandler_getTail(o) == nullptr && QlgHandler_getFormatter(o) == nullptr);
    QlgHandler_setFormatter(o, notAHandler);
  }
  QlgHandler_propertyChanged(nullptr, "formatterName");
}

}  // namespace
