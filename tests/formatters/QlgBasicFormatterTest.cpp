// SPDX-License-Identifier: Apache-2.0
// The basic formatter: the local time stamp (milliseconds, UTC offset,
// daylight saving, a user date-time pattern) and the line built from time
// stamp, event properties, message text and separator.
#include <ardel/QlgEvent.h>
#include <ardel/QlgToolkit.h>

#include "formatters/QlgBasicFormatter.h"
#include "msg/QlgMsgTable.h"
#include "nls/QlgLocale.h"
#include "support/TestSupport.h"

namespace {

// Sets the process time zone for one scope and restores it afterwards.
struct ScopedTz {
  explicit ScopedTz(const char* tz) : had(getenv("TZ") != nullptr), old(had ? getenv("TZ") : "") {
    setenv("TZ", tz, 1);
    tzset();
  }
  ~ScopedTz() {
    had ? setenv("TZ", old.c_str(), 1) : unsetenv("TZ");
    tzset();
  }
  bool had;
  std::string old;
};

// Milliseconds since 1970 of a UTC calendar time in 2009.
int64_t utcMillis(int month, int day, int hour, int min, int sec, int ms) {
  struct tm tm = {};
  tm.tm_year = 109, tm.tm_mon = month - 1, tm.tm_mday = day, tm.tm_hour = hour, tm.tm_min = min, tm.tm_sec = sec;
  return static_cast<int64_t>(timegm(&tm)) * 1000 + ms;
}

std::string take(char* text) {
  std::string out = text ? text : "<null>";
  QlgMem_free(text);
  return out;
}

// The stamp of a formatter object built by hand with only the fields the stamp reads.
std::string stamp(const char* tz, int64_t ms, const char* pattern = nullptr, int kind = QLG_KIND_FORMATTER) {
  ScopedTz zone(tz);
  QlgClass cls = {};
  QlgObject obj = {};
  cls.kind = kind;
  obj.cls = &cls;
  obj.field2.text = const_cast<char*>(pattern);
  return take(QlgBasicFormatter_timeStamp(&obj, ms));
}

TEST(QlgBasicFormatterTimeStamp, LocalTimeWithMillisecondsAndTheSignedOffsetIncludingDaylightSaving) {
  const char* cet = "CET-1CEST,M3.5.0,M10.5.0/3";
  const struct { const char* tz; int64_t ms; const char *pattern, *want; } cases[] = {
      {cet, utcMillis(3, 14, 14, 9, 26, 535), nullptr, "2009-03-14 15:09:26.535+01:00"},
      {cet, utcMillis(7, 14, 13, 9, 26, 5), nullptr, "2009-07-14 15:09:26.005+02:00"},
      {"NST3:30", utcMillis(3, 14, 18, 39, 26, 0), nullptr, "2009-03-14 15:09:26.000-03:30"},
      {"NST3:30NDT,M3.2.0,M11.1.0", utcMillis(7, 14, 17, 39, 26, 0), nullptr, "2009-07-14 15:09:26.000-02:30"},
      {"UTC0", utcMillis(3, 14, 15, 9, 27, 0) - 1, nullptr, "2009-03-14 15:09:26.999+00:00"},
      // before 1970 the seconds count towards zero and the milliseconds keep the sign
      {"UTC0", 0, nullptr, "1970-01-01 00:00:00.000+00:00"}, {"UTC0", -999, nullptr, "1970-01-01 00:00:00.-999+00:00"},
      {"UTC0", -1500, nullptr, "1969-12-31 23:59:59.-500+00:00"},
      {cet, utcMillis(3, 14, 14, 9, 26, 535), "%d/%m/%Y %H.%M.%S", "14/03/2009 15.09.26"}, {cet, 0, "", ""},
      {"UTC0", utcMillis(3, 14, 15, 9, 26, 0), "%Y" "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
       "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", nullptr}};
  for (const auto& c : cases) {
    std::string got = stamp(c.tz, c.ms, c.pattern);
    if (c.want) { EXPECT_EQ(got, c.want) << c.tz; }
    else { EXPECT_EQ(got, "2009" + std::string(123, 'x')) << "a pattern is cut to what fits 128 bytes"; }
  }
  EXPECT_EQ(stamp("UTC0", 20, "%Y", QLG_KIND_HANDLER), "1970-01-01 00:00:00.020+00:00") << "no formatter: built-in stamp";
  ScopedTz tz("UTC0");
  EXPECT_EQ(take(QlgBasicFormatter_timeStamp(nullptr, 20)), "1970-01-01 00:00:00.020+00:00");
  setenv("TZ", "CET-1", 1);  // no tzset() here: the formatter must notice alone
  EXPECT_EQ(take(QlgBasicFormatter_timeStamp(nullptr, 20)), "1970-01-01 01:00:00.020+01:00");
}

// formatMessage slots of test classes.
const QlgLocale* g_seenLocale = nullptr;
char* renderUpperKey(const QlgI18Msg* msg, const QlgLocale* locale) {
  g_seenLocale = locale;
  return QlgMem_strdup(msg && msg->key == 7 ? "SEVEN" : "other");
}
char* renderNothing(const QlgI18Msg*, const QlgLocale*) { return nullptr; }

class QlgBasicFormatterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    static int serial = 0;
    name_ = "test.basicFormatter" + std::to_string(++serial);
    fmt_ = QlgObject_create(name_.c_str(), "qlg_basicformatter");
  }
  void TearDown() override {
    for (QlgEvent* e : events_) QlgEvent_free(e);
    QlgObject_release(fmt_);
  }
  // An event at 2009-03-14 15:09:26.535 UTC with the given properties.
  QlgEvent* event(QlgEvent* e, std::initializer_list<std::pair<const char*, const char*>> props = {}) {
    e->time = utcMillis(3, 14, 15, 9, 26, 535);
    for (const auto& p : props)
      p.first == std::string(QLG_PROP_SRCLINE) ? QlgEvent_addIntProperty(e, p.first, atoi(p.second))
                                              : QlgEvent_addStringProperty(e, p.first, p.second);
    events_.push_back(e);
    return e;
  }
  QlgEvent* event(const char* text, std::initializer_list<std::pair<const char*, const char*>> props = {}) {
    return event(QlgEvent_createTagged(3000, nullptr, 0, 0, text, 0), props);
  }
  std::string format(QlgEvent* e, QlgObject* f = nullptr) { return take(QlgBasicFormatter_format(f ? f : fmt_, e)); }
  QlgObject* withRenderer(const char* cls, char* (*render)(const QlgI18Msg*, const QlgLocale*)) {
    QlgClass_registerFormatter(cls, nullptr, nullptr, nullptr, QlgBasicFormatter_propertyChanged, nullptr, nullptr,
                               nullptr, render);
    return QlgObject_create((name_ + cls).c_str(), cls);
  }
  const std::string kStamp = "2009-03-14 15:09:26.535+00:00";
  ScopedTz tz_{"UTC0"};
  std::string name_;
  QlgObject* fmt_ = nullptr;
  std::vector<QlgEvent*> events_;
};

TEST_F(QlgBasicFormatterTest, PropertiesFollowTheStampInTheirFixedOrderEachWithTheSeparator) {
  EXPECT_EQ(format(event("hello world")), kStamp + " hello world\n");
  // Added out of order on purpose: the line order is the formatter's.
  EXPECT_EQ(format(event("msg", {{"server", "srv"}, {"client", "cli"}, {"component", "comp"}, {"product", "prod"},
                                 {"organization", "org"}, {QLG_PROP_SRCLINE, "42"}, {QLG_PROP_SRCFUNCTION, "main"},
                                 {QLG_PROP_SRCFILE, "scan.cpp"}})),
            kStamp + " scan.cpp main 42 org prod comp cli srv msg\n");
  EXPECT_EQ(format(event("t", {{QLG_PROP_SRCLINE, "-7"}})), kStamp + " -7 t\n");
  QlgObject_storeProperty(fmt_, "separator", "::");
  QlgObject_storeProperty(fmt_, "separator", "|");
  EXPECT_EQ(format(event("text", {{QLG_PROP_SRCFILE, "a.c"}, {"component", "hw"}})), kStamp + "|a.c|hw|text\n");
  EXPECT_EQ(format(event("text", {{QLG_PROP_SRCFILE, "a.c"}, {QLG_PROP_SRCFUNCTION, "f"}, {QLG_PROP_SRCLINE, "0"}})),
            kStamp + "|a.c|f||text\n") << "line zero leaves an empty field";
  QlgObject_storeProperty(fmt_, "separator", "");
  EXPECT_EQ(format(event(QlgEvent_createTagged(3000, nullptr, 0, 0, "found %d devices on %s", 502, 3, 507, "bus0", 0))),
            kStamp + "found 3 devices on bus0\n");
  EXPECT_EQ(format(event(QlgEvent_createTagged(6000, "qlgmsg", 1, 20, QlgMsgTable_text(20), 0))),
            kStamp + "QLGBC0020E Out of memory.\r\n");
  QlgObject_storeProperty(fmt_, "dateTimeFormat", "[%H:%M]");
  EXPECT_EQ(format(event("m")), "[15:09]m\n");
  QlgObject_storeProperty(fmt_, "logging", "off");  // other properties reach the generic handling
  EXPECT_EQ(fmt_->logging, 0);
}

TEST_F(QlgBasicFormatterTest, TheLocaleAndTheFormatMessageSlotShapeTheMessage) {
  QlgLocale* own = QlgLocale_normalize("fr_FR");
  QlgEvent* e = event("m");
  QlgEvent_setLocale(e, own);
  format(e);
  EXPECT_EQ(e->locale, own) << "without a locale the event keeps its own";
  QlgLocale_release(own);
  QlgObject_storeProperty(fmt_, "locale", "de_DE.UTF-8");
  EXPECT_STREQ(fmt_->field3.locale->name, "de_DE") << "the codeset is not part of the name";
  format(e);
  EXPECT_EQ(e->locale, fmt_->field3.locale);
  QlgObject_storeProperty(fmt_, "locale", "");
  EXPECT_STREQ(fmt_->field3.locale->name, "") << "an empty value still stores a locale";
  QlgObject* upper = withRenderer("test_upperkey", renderUpperKey);
  QlgObject_storeProperty(upper, "locale", "ja_JP");
  EXPECT_EQ(format(event(QlgEvent_createTagged(5000, "qlgmsg", 1, 7, "seven", 0)), upper), kStamp + " SEVEN\n");
  EXPECT_STREQ(g_seenLocale->name, "ja_JP");
  QlgObject* silent = withRenderer("test_silent", renderNothing);
  QlgObject_storeProperty(silent, "separator", "|");
  EXPECT_EQ(format(event("never shown", {{QLG_PROP_SRCFILE, "a.c"}}), silent), kStamp + "|a.c|\n");
  QlgObject* handler = QlgObject_create((name_ + ".handler").c_str(), "qlg_consolehandler");
  for (QlgObject* f : {static_cast<QlgObject*>(nullptr), handler}) EXPECT_EQ(QlgBasicFormatter_format(f, e), nullptr);
  EXPECT_EQ(QlgBasicFormatter_format(fmt_, nullptr), nullptr);
  QlgBasicFormatter_propertyChanged(nullptr, "separator");
  QlgBasicFormatter_propertyChanged(fmt_, nullptr);
  for (QlgObject* o : {upper, silent, handler}) QlgObject_release(o);
}

TEST_F(QlgBasicFormatterTest, OutOfMemoryGivesNullOrALineWhoseOnlyMessageMayDegrade) {
  QlgObject_storeProperty(fmt_, "separator", "|");
  QlgEvent* e = event("value %d", {{QLG_PROP_SRCFILE, "a.c"}, {QLG_PROP_SRCLINE, "12"}});
  QlgI18Msg_addInt(e->message, 9);
  ASSERT_EQ(format(e), kStamp + "|a.c|12|value 9\n");
  ardeltest::sweepAllocations([] {}, [&] {
    std::string got = format(e);
    EXPECT_TRUE(got == "<null>" || got == kStamp + "|a.c|12|value 9\n" || got == kStamp + "|a.c|12|value %d\n" ||
                got == kStamp + "|a.c|12|\n") << got;
  }, [](long) {});
}

}  // namespace
