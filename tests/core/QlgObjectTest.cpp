// SPDX-License-Identifier: Apache-2.0
// The object model: creation by name and by configuration, reference
// counting and tear-down, the generic properties and dispatch to listeners.
#include <ardel/QlgLogger.h>

#include "core/QlgObjectContainers.h"
#include "core/QlgToolkitInt.h"
#include "support/Recorder.h"

using namespace ardeltest;

namespace {

std::string listenerNames(QlgObject* obj) {
  std::string names;
  QlgListenerGroup* g = obj->cls->kind == QLG_KIND_HANDLER ? obj->field1.listeners : obj->field2.listeners;
  for (auto* e = QlgListenerGroup_first(g); e; e = e->next) names += std::string(e->value->name) + ";";
  return names;
}

void log(const char* logger, const char* text) {
  QlgObject* app = QlgObject_find(logger);
  ASSERT_NE(app, nullptr);
  QlgLogger_logMin(app, "src.c", "fn", 7, "%1$s", QLG_PARM_STRING, text, 0);
  QlgObject_release(app);
}

}  // namespace

TEST(ObjectLifetime, CreationByNameOrConfigurationAndItsReports) {
  withToolkit("app.className=qlg_basiclogger\nghost.className=no_such_class\n", [] {
    QlgObject* a = QlgObject_create("app", nullptr);
    EXPECT_EQ(a->refCount, 2);  // registry and caller
    QlgObject* b = QlgObject_create("app", "qlg_basiclogger");
    EXPECT_EQ(a, b);
    EXPECT_EQ(a->refCount, 3);
    QlgObject_release(b);
    std::string out = reportsOf([] {
      EXPECT_EQ(QlgObject_create("app", "qlg_consolehandler"), nullptr);
      EXPECT_EQ(QlgObject_create("x", "no_such_class"), nullptr);
      EXPECT_EQ(QlgObject_create("ghost", nullptr), nullptr);
      EXPECT_EQ(QlgObject_create("nameless", nullptr), nullptr);
    });
    EXPECT_EQ(out,
              "QLGBC0061W Object 'app' exists but is of class 'qlg_basiclogger' instead of 'qlg_consolehandler' .\r\n"
              "QLGBC0062W Class 'no_such_class' must be defined before object 'x' can be created.\r\n"
              "QLGBC0062W Class 'no_such_class' must be defined before object 'ghost' can be created.\r\n"
              "QLGBC0063W A class must be specified before object 'nameless' can be created.\r\n");
    EXPECT_EQ(a->refCount, 2);
    QlgObject_release(a);
    QlgClass* first = QlgClass_find("test_recorder");
    QlgClass_registerLogger("test_recorder", nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(QlgClass_find("test_recorder"), first) << "a second registration of a name is ignored";
  });
}

TEST(ObjectLifetime, ACorruptObjectIsReportedWithKey60AndDoesNotStopShutdown) {
  withToolkit("", [] {
    QlgObject* broken = QlgObject_create("broken", "qlg_basiclogger");
    broken->cls = nullptr;  // as if its record had been overwritten
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(QlgObject_create("broken", nullptr), nullptr); }),
              "QLGBC0060W The object named 'broken' is corrupt.\r\n");
    alarm(30);  // a watchdog, not a timing: shutdown used to spin on the corrupt entry
    QlgToolkit_shutdown();
    alarm(0);
    EXPECT_EQ(QlgToolkit_registries()->objects, nullptr);
    QlgMem_free(broken->name);  // nobody can tear a classless object down; its holder frees it
    QlgMem_free(broken);
  });
}

TEST(GenericProperties, LoggingListenerNamesDescriptionsAndAncestorsApply) {
  withToolkit("a.className=test_recorder\nb.className=test_recorder\napp.className=qlg_basiclogger\n"
              "app.listenerNames=a\tb a\nd1.className=test_recorder\nd1.description=records events\n"
              "d1.descriptionFile=mycat\nd1.descriptionSet=3\nd1.descriptionKey=7\n"
              "handlers.className=test_recorder\nhandlers.logging=off\nhandlers.one.logging=on\n",
              [] {
    QlgObject* app = QlgObject_create("app", nullptr);
    EXPECT_EQ(listenerNames(app), "a;b;") << "resolved once each when applied";
    QlgObject* a = QlgObject_find("a");
    EXPECT_EQ(a->refCount, 3);  // registry, group, this lookup
    QlgObject_storeProperty(app, "listenerNames", "");
    EXPECT_EQ(listenerNames(app), "");
    EXPECT_EQ(a->refCount, 2);
    QlgObject_storeProperty(app, "listenerNames", "b");
    EXPECT_EQ(listenerNames(app), "b;");
    const std::pair<const char*, int> switches[] = {{"FALSE", 0}, {"yes", 0}, {"TRUE", 1}, {"Off", 0}, {"on", 1}};
    for (const auto& s : switches) {
      QlgObject_storeProperty(a, "logging", s.first);
      EXPECT_EQ(QlgObject_isLogging(a), s.second) << s.first;
    }
    QlgObject* d = QlgObject_create("d1", nullptr);
    QlgI18Msg* desc = QlgClass_find("test_recorder")->description;
    ASSERT_NE(desc, nullptr);
    EXPECT_STREQ(desc->defaultText, "records events");
    EXPECT_STREQ(desc->catalog, "mycat");
    EXPECT_TRUE(desc->set == 3 && desc->key == 7);
    QlgObject* one = QlgObject_create("handlers.one", nullptr);
    QlgObject* two = QlgObject_create("handlers.two", nullptr);
    EXPECT_STREQ(one->cls->name, "test_recorder") << "ancestors apply first, the most specific wins";
    EXPECT_TRUE(one->logging == 1 && two->logging == 0);
    for (QlgObject* o : {a, app, d, one, two}) QlgObject_release(o);
  });
}

TEST(Dispatch, EventsFlowDepthFirstOnceEachSkippingLoggersAndSilencedHandlers) {
  withToolkit("app.className=qlg_basiclogger\napp.listenerNames=f h3 inner off self\n"
              "f.className=qlg_levelfilter\nf.listenerNames=h1 h2\nh1.className=test_recorder\n"
              "h1.listenerNames=h1x\nh1x.className=test_recorder\nh1x.listenerNames=h1 app\n"
              "h2.className=test_recorder\nh3.className=test_recorder\ninner.className=qlg_basiclogger\n"
              "inner.listenerNames=h4\nh4.className=test_recorder\noff.className=test_recorder\n"
              "off.logging=off\nself.className=test_recorder\nself.listenerNames=self\n",
              [] {
    QlgObject* app = QlgObject_create("app", nullptr);
    log("app", "hello you");
    EXPECT_EQ(seenList(&Seen::handler), "h1;h1x;h2;h3;self;") << "cycles deliver once and do not recurse";
    ASSERT_FALSE(seen().empty());
    const Seen& s = seen()[0];
    EXPECT_TRUE(s.text == "hello you" && s.level == 3000 && !s.isMessage && s.file == "src.c" &&
                s.function == "fn" && s.line == "7");
    QlgObject_release(app);
  });
}

namespace {

// A handler that rewires the logger "app" from inside its publish.
void rewiringPublish(QlgObject* handler, QlgEvent* event) {
  recorderPublish(handler, event);
  QlgObject* app = QlgObject_find("app");
  QlgObject_storeProperty(app, "listenerNames", "late");
  QlgObject_release(app);
}

}  // namespace

TEST(Dispatch, ListenersPresentWhenTheEventArrivedGetItEvenIfAPublishReplacesTheGroup) {
  withToolkit("app.className=qlg_basiclogger\napp.listenerNames=rewire h2\nrewire.className=test_rewiring\n"
              "h2.className=test_recorder\nlate.className=test_recorder\n",
              [] {
    QlgClass_registerHandler("test_rewiring", nullptr, nullptr, nullptr, QlgObject_basePropertyChanged,
                             rewiringPublish, nullptr, nullptr);
    QlgObject* app = QlgObject_create("app", nullptr);
    // Only the group holds the two listeners: replacing it tears the first
    // down while its publish is still on the stack.
    log("app", "first");
    log("app", "second");
    EXPECT_EQ(seenList(&Seen::handler), "rewire;h2;late;");
    EXPECT_EQ(QlgObject_find("rewire"), nullptr);
    QlgObject_release(app);
  });
}
