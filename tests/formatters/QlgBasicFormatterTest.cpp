/*
 * The basic formatter: the local time stamp (milliseconds, UTC offset,
 * daylight saving, a user date-time pattern) and the line built from time
 * stamp, event properties, message text and separator.
 */
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "formatters/QlgBasicFormatter.h"
#include "msg/QlgMsgTable.h"
#include "nls/QlgLocale.h"
#include "util/QlgMemTest.h"

namespace {

/* Sets the process time zone for one scope and restores it afterwards. */
struct ScopedTz {
  explicit ScopedTz(const char* tz) : had(getenv("TZ") != nullptr), old(had ? getenv("TZ") : "") {
    setenv("TZ", tz, 1);
    tzset();
  }
  ~ScopedTz() {
    if (had) setenv("TZ", old.c_str(), 1); else unsetenv("TZ");
    tzset();
  }
  bool had;
  std::string old;
};

/* Milliseconds since 1970 of a UTC calendar time. */
int64_t utcMillis(int year, int month, int day, int hour, int min, int sec, int ms) {
  struct tm tm;
  memset(&tm, 0, sizeof tm);
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = min;
  tm.tm_sec = sec;
  return static_cast<int64_t>(timegm(&tm)) * 1000 + ms;
}

std::string take(char* text) {
  std::string out = text ? text : "<null>";
  QlgMem_free(text);
  return out;
}

/* A formatter object built by hand: only the fields the time stamp reads. */
class HandMadeFormatter {
 public:
  HandMadeFormatter() {
    memset(&cls_, 0, sizeof cls_);
    memset(&obj_, 0, sizeof obj_);
    cls_.kind = QLG_KIND_FORMATTER;
    obj_.cls = &cls_;
  }
  QlgObject* get() { return &obj_; }
  void setPattern(const char* pattern) { obj_.field2.text = const_cast<char*>(pattern); }
  std::string stamp(int64_t ms) { return take(QlgBasicFormatter_timeStamp(&obj_, ms)); }

 private:
  QlgClass cls_;
  QlgObject obj_;
};

// --- the time stamp --------------------------------------------------------

/* The built-in stamp of ms in time zone tz. */
std::string stampIn(const char* tz, int64_t ms) {
  ScopedTz zone(tz);
  return HandMadeFormatter().stamp(ms);
}

TEST(QlgBasicFormatterTimeStamp, ShowsLocalTimeWithMillisecondsAndTheSignedOffsetIncludingDaylightSaving) {
  const char* cet = "CET-1CEST,M3.5.0,M10.5.0/3";
  EXPECT_EQ(stampIn(cet, utcMillis(2009, 3, 14, 14, 9, 26, 535)), "2009-03-14 15:09:26.535+01:00");
  // Daylight saving adds an hour to the offset.
  EXPECT_EQ(stampIn(cet, utcMillis(2009, 7, 14, 13, 9, 26, 5)), "2009-07-14 15:09:26.005+02:00");
  // West of Greenwich with half hours: negative hours and minutes; daylight saving keeps the minutes.
  EXPECT_EQ(stampIn("NST3:30", utcMillis(2009, 3, 14, 18, 39, 26, 0)), "2009-03-14 15:09:26.000-03:30");
  EXPECT_EQ(stampIn("NST3:30NDT,M3.2.0,M11.1.0", utcMillis(2009, 7, 14, 17, 39, 26, 0)),
            "2009-07-14 15:09:26.000-02:30");
  EXPECT_EQ(stampIn("UTC0", utcMillis(2009, 3, 14, 15, 9, 26, 20)), "2009-03-14 15:09:26.020+00:00");
}

TEST(QlgBasicFormatterTimeStamp, OneMillisecondBeforeASecondShows999AndNegativeTimesCountTowardsZero) {
  ScopedTz tz("UTC0");
  HandMadeFormatter f;
  EXPECT_EQ(f.stamp(utcMillis(2009, 3, 14, 15, 9, 27, 0) - 1), "2009-03-14 15:09:26.999+00:00");
  EXPECT_EQ(f.stamp(0), "1970-01-01 00:00:00.000+00:00");
  // -999 ms lies within second 0 when truncating (flooring would give 23:59:59);
  // the milliseconds keep the sign of the time.
  EXPECT_EQ(f.stamp(-999), "1970-01-01 00:00:00.-999+00:00");
  EXPECT_EQ(f.stamp(-1500), "1969-12-31 23:59:59.-500+00:00");
  EXPECT_EQ(f.stamp(-1), "1970-01-01 00:00:00.-001+00:00");
}

TEST(QlgBasicFormatterTimeStamp, AChangedTimeZoneIsPickedUpByTheNextStamp) {
  ScopedTz tz("UTC0");
  HandMadeFormatter f;
  int64_t ms = utcMillis(2009, 3, 14, 15, 9, 26, 535);
  EXPECT_EQ(f.stamp(ms), "2009-03-14 15:09:26.535+00:00");
  setenv("TZ", "CET-1", 1);  // no tzset() here: the formatter must notice alone
  EXPECT_EQ(f.stamp(ms), "2009-03-14 16:09:26.535+01:00");
}

TEST(QlgBasicFormatterTimeStamp, ADateTimeFormatGivesExactlyTheStrftimeOutput) {
  ScopedTz tz("CET-1CEST,M3.5.0,M10.5.0/3");
  HandMadeFormatter f;
  f.setPattern("%d/%m/%Y %H.%M.%S");
  EXPECT_EQ(f.stamp(utcMillis(2009, 3, 14, 14, 9, 26, 535)), "14/03/2009 15.09.26");
  f.setPattern("");
  EXPECT_EQ(f.stamp(utcMillis(2009, 3, 14, 14, 9, 26, 535)), "");
}

TEST(QlgBasicFormatterTimeStamp, ADateTimeFormatIsCutToWhatFits128Bytes) {
  ScopedTz tz("UTC0");
  HandMadeFormatter f;
  std::string pattern = "%Y" + std::string(200, 'x');
  f.setPattern(pattern.c_str());
  std::string stamp = f.stamp(utcMillis(2009, 3, 14, 15, 9, 26, 0));
  EXPECT_EQ(stamp.size(), 127u);
  EXPECT_EQ(stamp, "2009" + std::string(123, 'x'));
}

TEST(QlgBasicFormatterTimeStamp, AnObjectThatIsNoFormatterGetsTheBuiltInStamp) {
  ScopedTz tz("UTC0");
  HandMadeFormatter f;
  f.setPattern("%Y");
  QlgClass handlerClass;
  memset(&handlerClass, 0, sizeof handlerClass);
  handlerClass.kind = QLG_KIND_HANDLER;
  f.get()->cls = &handlerClass;  // field2 is a formatter link, not a pattern
  EXPECT_EQ(take(QlgBasicFormatter_timeStamp(f.get(), 20)), "1970-01-01 00:00:00.020+00:00");
  EXPECT_EQ(take(QlgBasicFormatter_timeStamp(nullptr, 20)), "1970-01-01 00:00:00.020+00:00");
}

// --- the formatted line ------------------------------------------------------

/* Fresh objects in an initialised toolkit, stamped in UTC. */
class QlgBasicFormatterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    static int serial = 0;
    name_ = "test.basicFormatter" + std::to_string(++serial);
    fmt_ = QlgObject_create(name_.c_str(), "qlg_basicformatter");
    ASSERT_NE(fmt_, nullptr);
  }
  void TearDown() override {
    QlgMem_failAt(0);
    for (QlgEvent* e : events_) QlgEvent_free(e);
    QlgObject_release(fmt_);
  }

  /* A trace event at a fixed time: 2009-03-14 15:09:26.535 UTC. */
  QlgEvent* event(const char* text) { return stamped(QlgEvent_createTagged(3000, nullptr, 0, 0, text, 0)); }
  QlgEvent* stamped(QlgEvent* e) {
    EXPECT_NE(e, nullptr);
    if (e) {
      e->time = utcMillis(2009, 3, 14, 15, 9, 26, 535);
      events_.push_back(e);
    }
    return e;
  }
  std::string format(QlgEvent* e, QlgObject* f = nullptr) { return take(QlgBasicFormatter_format(f ? f : fmt_, e)); }
  /* The expected line: the stamp, then the rest. */
  static std::string line(const std::string& rest) { return kStamp + rest; }

  static constexpr const char* kStamp = "2009-03-14 15:09:26.535+00:00";
  ScopedTz tz_{"UTC0"};
  std::string name_;
  QlgObject* fmt_ = nullptr;
  std::vector<QlgEvent*> events_;
};

TEST_F(QlgBasicFormatterTest, AnEventWithoutPropertiesIsStampSeparatorMessageAndLineEnd) {
  EXPECT_EQ(format(event("hello world")), line(" hello world\n"));
}

TEST_F(QlgBasicFormatterTest, PropertiesFollowTheStampInTheirFixedOrder) {
  QlgEvent* e = event("msg");
  // Added out of order on purpose: the line order is the formatter's.
  QlgEvent_addStringProperty(e, "server", "srv");
  QlgEvent_addStringProperty(e, "client", "cli");
  QlgEvent_addStringProperty(e, "component", "comp");
  QlgEvent_addStringProperty(e, "product", "prod");
  QlgEvent_addStringProperty(e, "organization", "org");
  QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 42);
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, "main");
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "scan.cpp");
  EXPECT_EQ(format(e), line(" scan.cpp main 42 org prod comp cli srv msg\n"));
}

TEST_F(QlgBasicFormatterTest, ASeparatorFollowsEveryFieldButNeverTheMessageAndLineZeroLeavesAnEmptyField) {
  QlgObject_storeProperty(fmt_, "separator", "|");
  QlgEvent* e = event("text");
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "a.c");
  QlgEvent_addStringProperty(e, "component", "hw");
  EXPECT_EQ(format(e), line("|a.c|hw|text\n"));
  e = event("text");
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "a.c");
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFUNCTION, "f");
  QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 0);
  EXPECT_EQ(format(e), line("|a.c|f||text\n"));
}

TEST_F(QlgBasicFormatterTest, NegativeSourceLinesAreSignedDecimals) {
  QlgEvent* e = event("t");
  QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, -7);
  EXPECT_EQ(format(e), line(" -7 t\n"));
}

TEST_F(QlgBasicFormatterTest, ChangingTheSeparatorAgainReplacesIt) {
  QlgObject_storeProperty(fmt_, "separator", "::");
  QlgObject_storeProperty(fmt_, "separator", ";");
  EXPECT_EQ(format(event("m")), line(";m\n"));
  QlgObject_storeProperty(fmt_, "separator", "");
  EXPECT_EQ(format(event("m")), line("m\n"));
}

TEST_F(QlgBasicFormatterTest, TraceParametersAreFilledIntoTheMessage) {
  QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, "found %d devices on %s", 502, 3,
                                      507, "bus0", 0);
  ASSERT_NE(e, nullptr);
  e->time = utcMillis(2009, 3, 14, 15, 9, 26, 535);
  events_.push_back(e);
  EXPECT_EQ(format(e), line(" found 3 devices on bus0\n"));
}

TEST_F(QlgBasicFormatterTest, CatalogMessagesShowTheirIdAndCarriageReturn) {
  QlgEvent* e = stamped(QlgEvent_createTagged(6000, "qlgmsg", 1, 20, QlgMsgTable_text(20), 0));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(format(e), line(" QLGBC0020E Out of memory.\r\n"));
}

TEST_F(QlgBasicFormatterTest, TheDateTimeFormatPropertyReplacesTheBuiltInStamp) {
  QlgObject_storeProperty(fmt_, "dateTimeFormat", "[%H:%M]");
  EXPECT_EQ(format(event("m")), "[15:09] m\n");
}

TEST_F(QlgBasicFormatterTest, TheLocalePropertyIsStoredOnEveryFormattedEvent) {
  QlgObject_storeProperty(fmt_, "locale", "de_DE.UTF-8");
  ASSERT_NE(fmt_->field3.locale, nullptr);
  EXPECT_STREQ(fmt_->field3.locale->name, "de_DE");
  QlgEvent* e = event("m");
  EXPECT_EQ(e->locale, nullptr);
  format(e);
  EXPECT_EQ(e->locale, fmt_->field3.locale);

  QlgObject_storeProperty(fmt_, "locale", "");
  ASSERT_NE(fmt_->field3.locale, nullptr);  // an empty value still stores a locale
  EXPECT_STREQ(fmt_->field3.locale->name, "");
}

TEST_F(QlgBasicFormatterTest, WithoutALocaleTheEventKeepsItsOwn) {
  QlgLocale* own = QlgLocale_normalize("fr_FR");
  QlgEvent* e = event("m");
  QlgEvent_setLocale(e, own);
  format(e);
  EXPECT_EQ(e->locale, own);
  QlgLocale_release(own);
}

TEST_F(QlgBasicFormatterTest, OtherPropertiesReachTheGenericHandling) {
  ASSERT_EQ(fmt_->logging, 1);
  QlgObject_storeProperty(fmt_, "logging", "off");
  EXPECT_EQ(fmt_->logging, 0);
  EXPECT_EQ(fmt_->field1.text, nullptr);
  EXPECT_EQ(fmt_->field2.text, nullptr);
}

TEST_F(QlgBasicFormatterTest, MissingFormatterEventOrKindGiveNoText) {
  EXPECT_EQ(QlgBasicFormatter_format(nullptr, event("m")), nullptr);
  EXPECT_EQ(QlgBasicFormatter_format(fmt_, nullptr), nullptr);
  QlgObject* handler = QlgObject_create((name_ + ".handler").c_str(), "qlg_consolehandler");
  ASSERT_NE(handler, nullptr);
  EXPECT_EQ(QlgBasicFormatter_format(handler, event("m")), nullptr);
  QlgObject_release(handler);
  QlgBasicFormatter_propertyChanged(nullptr, "separator");
  QlgBasicFormatter_propertyChanged(fmt_, nullptr);
}

/* formatMessage slots of test classes. */
char* renderNothing(const QlgI18Msg*, const QlgLocale*) { return nullptr; }
const QlgLocale* g_seenLocale = nullptr;
char* renderUpperKey(const QlgI18Msg* msg, const QlgLocale* locale) {
  g_seenLocale = locale;
  return QlgMem_strdup(msg && msg->key == 7 ? "SEVEN" : "other");
}

/* An object of a new formatter class whose formatMessage slot is render. */
QlgObject* withRenderer(const std::string& name, const char* cls,
                        char* (*render)(const QlgI18Msg*, const QlgLocale*)) {
  QlgClass_registerFormatter(cls, nullptr, nullptr, nullptr, QlgBasicFormatter_propertyChanged,
                             nullptr, nullptr, nullptr, render);
  QlgObject* o = QlgObject_create(name.c_str(), cls);
  EXPECT_NE(o, nullptr);
  return o;
}

TEST_F(QlgBasicFormatterTest, TheLineUsesTheClassesFormatMessageSlot) {
  QlgObject* own = withRenderer(name_ + ".upper", "test_upperkeyformatter", renderUpperKey);
  ASSERT_NE(own, nullptr);
  QlgObject_storeProperty(own, "locale", "ja_JP");
  QlgEvent* e = stamped(QlgEvent_createTagged(5000, "qlgmsg", 1, 7, "seven", 0));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(format(e, own), line(" SEVEN\n"));
  ASSERT_NE(g_seenLocale, nullptr);
  EXPECT_STREQ(g_seenLocale->name, "ja_JP");
  QlgObject_release(own);
}

TEST_F(QlgBasicFormatterTest, AMessageThatRendersToNothingLeavesStampAndFields) {
  QlgObject* silent = withRenderer(name_ + ".silent", "test_silentformatter", renderNothing);
  ASSERT_NE(silent, nullptr);
  QlgObject_storeProperty(silent, "separator", "|");
  QlgEvent* e = event("never shown");
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "a.c");
  EXPECT_EQ(format(e, silent), line("|a.c|\n"));
  QlgObject_release(silent);
}

TEST_F(QlgBasicFormatterTest, OutOfMemoryGivesNullOrACompleteLine) {
  QlgObject_storeProperty(fmt_, "separator", "|");
  QlgEvent* e = event("value %d");
  QlgI18Msg_addInt(e->message, 9);
  QlgEvent_addStringProperty(e, QLG_PROP_SRCFILE, "a.c");
  QlgEvent_addIntProperty(e, QLG_PROP_SRCLINE, 12);
  const std::string full = line("|a.c|12|value 9\n");
  QlgMem_failAt(0);
  ASSERT_EQ(format(e), full);
  long attempts = QlgMem_allocCount();
  for (long i = 1; i <= attempts; ++i) {
    QlgMem_failAt(i);
    char* text = QlgBasicFormatter_format(fmt_, e);
    QlgMem_failAt(0);
    if (text) {
      std::string got = text;
      // Only the message may degrade (to its default text, or to nothing).
      EXPECT_TRUE(got == full || got == line("|a.c|12|value %d\n") ||
                  got == line("|a.c|12|\n"))
          << "attempt " << i << ": " << got;
    }
    QlgMem_free(text);
  }
}

}  // namespace
