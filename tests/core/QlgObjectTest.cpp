/*
 * The object model: creation by name and by configuration, reference
 * counting and tear-down, the generic properties (logging, listenerNames,
 * descriptions) and dispatch to listeners.
 */
#include <ardel/QlgLogger.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgToolkit.h>

#include "core/QlgObjectContainers.h"
#include "core/QlgToolkitInt.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

/* Starts the toolkit on a properties text and registers the recorder. */

std::vector<std::string> listenerNames(QlgObject* obj) {
  std::vector<std::string> names;
  QlgListenerGroup* g = obj->cls->kind == QLG_KIND_HANDLER ? obj->field1.listeners : obj->field2.listeners;
  for (auto* e = QlgListenerGroup_first(g); e; e = e->next) names.push_back(e->value->name);
  return names;
}

}  // namespace

TEST(ObjectLifetime, CreatingAnExistingNameReturnsTheSameObject) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\n");
    QlgObject* a = QlgObject_create("app", nullptr);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->refCount, 2); /* registry and caller */
    QlgObject* b = QlgObject_create("app", "qlg_basiclogger");
    EXPECT_EQ(a, b);
    EXPECT_EQ(a->refCount, 3);
    QlgObject_release(b);
    QlgObject_release(a);
  });
}

TEST(ObjectLifetime, AnotherClassForAnExistingNameFailsWithKey61AndKeepsTheObject) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\n");
    QlgObject* a = QlgObject_create("app", nullptr);
    std::string out;
    {
      CaptureFd err(2);
      EXPECT_EQ(QlgObject_create("app", "qlg_consolehandler"), nullptr);
      out = err.text();
    }
    EXPECT_NE(out.find("QLGBC0061W Object 'app' exists but is of class 'qlg_basiclogger' instead "
                       "of 'qlg_consolehandler' .\r\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(a->refCount, 2);
    EXPECT_STREQ(a->cls->name, "qlg_basiclogger");
    QlgObject_release(a);
  });
}

TEST(ObjectLifetime, UnknownOrMissingClassIsReported) {
  inChild([] {
    startWithRecorder("ghost.className=no_such_class\n");
    CaptureFd err(2);
    EXPECT_EQ(QlgObject_create("x", "no_such_class"), nullptr);
    EXPECT_EQ(QlgObject_create("ghost", nullptr), nullptr);
    EXPECT_EQ(QlgObject_create("nameless", nullptr), nullptr);
    std::string out = err.text();
    EXPECT_NE(out.find("QLGBC0062W Class 'no_such_class' must be defined before object 'x' can be created."),
              std::string::npos) << out;
    EXPECT_NE(out.find("QLGBC0062W Class 'no_such_class' must be defined before object 'ghost' can be created."),
              std::string::npos) << out;
    EXPECT_NE(out.find("QLGBC0063W A class must be specified before object 'nameless' can be created."),
              std::string::npos) << out;
  });
}

TEST(ObjectLifetime, LastOutsideReleaseTearsDownAndUnregisters) {
  inChild([] {
    startWithRecorder("");
    static int destroyed = 0;
    QlgClass_registerHandler(
        "test_counted", nullptr, [] { return QlgMem_alloc(4); },
        [](void* d) { destroyed++; QlgMem_free(d); }, nullptr, nullptr, nullptr, nullptr);
    QlgObject* h = QlgObject_create("h", "test_counted");
    ASSERT_NE(h, nullptr);
    QlgObject* again = QlgObject_find("h");
    EXPECT_EQ(again, h);
    QlgObject_release(again);
    EXPECT_EQ(destroyed, 0);
    QlgObject_release(h);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(QlgObject_find("h"), nullptr);
  });
}

TEST(ObjectLifetime, ReleaseOfAnObjectOnlyTheRegistryHoldsDoesNotTearDown) {
  inChild([] {
    startWithRecorder("");
    QlgObject* h = QlgObject_create("h", "test_recorder");
    QlgObject_release(h);            /* 2 -> 1: torn down, unregistered */
    EXPECT_EQ(QlgObject_find("h"), nullptr);
    QlgObject* l = QlgObject_create("l", "qlg_basiclogger");
    l->refCount = 1;                 /* as if only the registry held it */
    QlgObject_release(l);
    EXPECT_EQ(l->refCount, 0);
    QlgObject* still = QlgObject_find("l");
    EXPECT_EQ(still, l);
  });
}

TEST(ObjectLifetime, SecondRegistrationOfAClassNameIsIgnored) {
  inChild([] {
    startWithRecorder("");
    QlgClass* first = QlgClass_find("test_recorder");
    QlgClass_registerLogger("test_recorder", nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(QlgClass_find("test_recorder"), first);
    EXPECT_EQ(first->kind, QLG_KIND_HANDLER);
  });
}

TEST(ObjectLifetime, EveryHandlerStartsWithTheSharedDefaultFormatter) {
  inChild([] {
    startWithRecorder("");
    QlgObject* fmt = QlgObject_find("ardel.defaultFormatter");
    int before = fmt->refCount;
    QlgObject* h1 = QlgObject_create("h1", "test_recorder");
    QlgObject* h2 = QlgObject_create("h2", "test_recorder");
    EXPECT_EQ(h1->field2.formatter, fmt);
    EXPECT_EQ(h2->field2.formatter, fmt);
    EXPECT_EQ(fmt->refCount, before + 2);
    QlgObject_release(h1);
    EXPECT_EQ(fmt->refCount, before + 1);
    QlgObject_release(h2);
    QlgObject_release(fmt);
  });
}

TEST(GenericProperties, LoggingSwitchAcceptsOnTrueOffFalseInAnyCase) {
  inChild([] {
    startWithRecorder("");
    QlgObject* h = QlgObject_create("h", "test_recorder");
    QlgObject_storeProperty(h, "logging", "FALSE");
    EXPECT_EQ(QlgObject_isLogging(h), 0);
    QlgObject_storeProperty(h, "logging", "yes");
    EXPECT_EQ(QlgObject_isLogging(h), 0);
    QlgObject_storeProperty(h, "logging", "TRUE");
    EXPECT_EQ(QlgObject_isLogging(h), 1);
    QlgObject_storeProperty(h, "logging", "Off");
    EXPECT_EQ(QlgObject_isLogging(h), 0);
    QlgObject_storeProperty(h, "logging", "on");
    EXPECT_EQ(QlgObject_isLogging(h), 1);
    QlgObject_release(h);
  });
}

TEST(GenericProperties, ListenerNamesAreResolvedWhenAppliedOnceEachAndReplaceable) {
  inChild([] {
    startWithRecorder("a.className=test_recorder\nb.className=test_recorder\n"
          "app.className=qlg_basiclogger\napp.listenerNames=a\tb a\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    ASSERT_NE(app, nullptr);
    EXPECT_EQ(listenerNames(app), (std::vector<std::string>{"a", "b"}));
    QlgObject* a = QlgObject_find("a");
    EXPECT_EQ(a->refCount, 3); /* registry, group, this lookup */
    QlgObject_storeProperty(app, "listenerNames", "");
    EXPECT_TRUE(listenerNames(app).empty());
    EXPECT_EQ(a->refCount, 2);
    QlgObject_storeProperty(app, "listenerNames", "b");
    EXPECT_EQ(listenerNames(app), (std::vector<std::string>{"b"}));
    QlgObject_release(a);
    QlgObject_release(app);
  });
}

TEST(GenericProperties, DescriptionKeysDescribeTheClass) {
  inChild([] {
    startWithRecorder("d1.className=test_recorder\nd1.description=records events\n"
          "d1.descriptionFile=mycat\nd1.descriptionSet=3\nd1.descriptionKey=7\n");
    QlgObject* d = QlgObject_create("d1", nullptr);
    QlgI18Msg* desc = QlgClass_find("test_recorder")->description;
    ASSERT_NE(desc, nullptr);
    EXPECT_STREQ(desc->defaultText, "records events");
    EXPECT_STREQ(desc->catalog, "mycat");
    EXPECT_EQ(desc->set, 3u);
    EXPECT_EQ(desc->key, 7u);
    QlgObject_release(d);
  });
}

TEST(Configuration, AncestorsApplyFirstAndTheMostSpecificWins) {
  inChild([] {
    startWithRecorder("handlers.className=test_recorder\nhandlers.logging=off\n"
          "handlers.one.logging=on\n");
    QlgObject* one = QlgObject_create("handlers.one", nullptr);
    ASSERT_NE(one, nullptr);
    EXPECT_STREQ(one->cls->name, "test_recorder");
    EXPECT_EQ(one->logging, 1);
    QlgObject* two = QlgObject_create("handlers.two", nullptr);
    ASSERT_NE(two, nullptr);
    EXPECT_EQ(two->logging, 0);
    QlgObject_release(one);
    QlgObject_release(two);
  });
}

TEST(Dispatch, EventsFlowDepthFirstThroughFiltersToHandlers) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=f h3\n"
          "f.className=qlg_levelfilter\nf.listenerNames=h1 h2\n"
          "h1.className=test_recorder\nh1.listenerNames=h1x\nh1x.className=test_recorder\n"
          "h2.className=test_recorder\nh3.className=test_recorder\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    QlgLogger_logMin(app, "src.c", "fn", 7, "hello %1$s", QLG_PARM_STRING, "you", 0);
    std::vector<std::string> order;
    for (auto& s : seen()) order.push_back(s.handler);
    EXPECT_EQ(order, (std::vector<std::string>{"h1", "h1x", "h2", "h3"}));
    ASSERT_FALSE(seen().empty());
    EXPECT_EQ(seen()[0].text, "hello you");
    EXPECT_EQ(seen()[0].level, 3000);
    EXPECT_FALSE(seen()[0].isMessage);
    EXPECT_EQ(seen()[0].file, "src.c");
    EXPECT_EQ(seen()[0].function, "fn");
    EXPECT_EQ(seen()[0].line, "7");
    QlgObject_release(app);
  });
}

TEST(Dispatch, LoggerWithoutListenersReportsKey1OnEveryEventFilterDropsSilently) {
  inChild([] {
    startWithRecorder("lonely.className=qlg_basiclogger\n"
          "app.className=qlg_basiclogger\napp.listenerNames=f\nf.className=qlg_levelfilter\n");
    QlgObject* lonely = QlgObject_create("lonely", nullptr);
    QlgObject* app = QlgObject_create("app", nullptr);
    CaptureFd err(2);
    QlgLogger_logMin(lonely, nullptr, nullptr, 0, "one", 0);
    QlgLogger_logMin(lonely, nullptr, nullptr, 0, "two", 0);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "three", 0);
    std::string out = err.text();
    size_t first = out.find("QLGLG01E No listeners are registered with the logger lonely.");
    ASSERT_NE(first, std::string::npos) << out;
    EXPECT_NE(out.find("QLGLG01E", first + 1), std::string::npos) << out;
    EXPECT_EQ(out.find("logger app"), std::string::npos) << out;
    QlgObject_release(lonely);
    QlgObject_release(app);
  });
}

TEST(Dispatch, LoggerListedAsAListenerIsSkippedAndSilencedHandlerIgnoresEvents) {
  inChild([] {
    startWithRecorder("inner.className=qlg_basiclogger\ninner.listenerNames=h2\nh2.className=test_recorder\n"
          "app.className=qlg_basiclogger\napp.listenerNames=inner h1 off\n"
          "h1.className=test_recorder\noff.className=test_recorder\noff.logging=off\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "x", 0);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].handler, "h1");
    QlgObject_release(app);
  });
}

namespace {

/* A handler that rewires the logger "app" from inside its publish, the way
   a handler that reacts to an event by reconfiguring the chain would. */
void rewiringPublish(QlgObject* handler, QlgEvent* event) {
  recorderPublish(handler, event);
  QlgObject* app = QlgObject_find("app");
  QlgObject_storeProperty(app, "listenerNames", "late");
  QlgObject_release(app);
}

}  // namespace

TEST(Dispatch, ListenersPresentWhenTheEventArrivedGetItEvenIfAPublishReplacesTheGroup) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=rewire h2\n"
          "rewire.className=test_rewiring\nh2.className=test_recorder\n"
          "late.className=test_recorder\n");
    QlgClass_registerHandler("test_rewiring", nullptr, nullptr, nullptr,
                             QlgObject_basePropertyChanged, rewiringPublish, nullptr, nullptr);
    QlgObject* app = QlgObject_create("app", nullptr);
    ASSERT_NE(app, nullptr);
    /* Only the group holds the two listeners: replacing the group tears the
       first one down while its publish is still on the stack. */
    QlgLogger_logMin(app, nullptr, nullptr, 0, "first", 0);
    std::vector<std::string> order;
    for (auto& s : seen()) order.push_back(s.handler);
    EXPECT_EQ(order, (std::vector<std::string>{"rewire", "h2"}));
    EXPECT_EQ(listenerNames(app), (std::vector<std::string>{"late"}));
    EXPECT_EQ(QlgObject_find("rewire"), nullptr);
    seen().clear();
    QlgLogger_logMin(app, nullptr, nullptr, 0, "second", 0);
    ASSERT_EQ(seen().size(), 1u);
    EXPECT_EQ(seen()[0].handler, "late");
    QlgObject_release(app);
  });
}

TEST(ObjectLifetime, ACorruptObjectIsReportedWithKey60AndDoesNotStopShutdown) {
  inChild([] {
    startWithRecorder("");
    QlgObject* broken = QlgObject_create("broken", "qlg_basiclogger");
    ASSERT_NE(broken, nullptr);
    broken->cls = nullptr; /* as if its record had been overwritten */
    std::string out;
    {
      CaptureFd err(2);
      EXPECT_EQ(QlgObject_create("broken", nullptr), nullptr);
      out = err.text();
    }
    EXPECT_NE(out.find("QLGBC0060W The object named 'broken' is corrupt.\r\n"), std::string::npos)
        << out;
    /* A watchdog, not a timing: shutdown used to spin on the corrupt entry. */
    alarm(30);
    QlgToolkit_shutdown();
    alarm(0);
    EXPECT_EQ(QlgToolkit_registries()->objects, nullptr);
    /* Nobody can tear a classless object down; its holder frees it. */
    QlgMem_free(broken->name);
    QlgMem_free(broken);
  });
}

TEST(Dispatch, ListenerCyclesDeliverOnceAndDoNotRecurse) {
  inChild([] {
    startWithRecorder("app.className=qlg_basiclogger\napp.listenerNames=a self\n"
          "a.className=test_recorder\na.listenerNames=b\n"
          "b.className=test_recorder\nb.listenerNames=a app\n"
          "self.className=test_recorder\nself.listenerNames=self\n");
    QlgObject* app = QlgObject_create("app", nullptr);
    ASSERT_NE(app, nullptr);
    QlgLogger_logMin(app, nullptr, nullptr, 0, "once", 0);
    std::vector<std::string> order;
    for (auto& s : seen()) order.push_back(s.handler);
    EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "self"}));
    QlgObject_release(app);
  });
}
