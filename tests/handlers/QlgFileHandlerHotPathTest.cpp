// SPDX-License-Identifier: Apache-2.0
/*
 * The file handler's fast record path against what it must keep:
 * - golden: 100,000 varied trace statements (all five calls, escaped method
 *   names, every kind of format, long and empty texts, zone changes) through
 *   the front end into a rolling file give exactly the lines the library
 *   gave before the fast path: each time stamp is checked against its own
 *   second, zone and offset rule, and everything after the stamps hashes to
 *   the value captured from the earlier library;
 * - a file removed, moved away or emptied by another program is noticed, in
 *   the every-record mode and with pathCheckInterval;
 * - records of several threads all arrive, whole and in each thread's order.
 */
#include <ardel/CLogWrapper.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgToolkit.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "support/Recorder.h"
#include "support/TestSupport.h"

using ardeltest::inChild;
using ardeltest::readFile;
using ardeltest::TempDir;

namespace {

/* FNV-1a, 64 bits. */
struct Hash {
  uint64_t h = 1469598103934665603ULL;
  void add(const std::string& s) {
    for (unsigned char c : s) h = (h ^ c) * 1099511628211ULL;
  }
};

const char* const kZones[] = {"UTC0", "IST-5:30", "EST5EDT,M3.2.0,M11.1.0", "XXX+3:30"};
const int kZoneSpan = 20000; /* records per zone */
const int kRecords = 100000;

uint32_t next(uint32_t& s) {
  s ^= s << 13;
  s ^= s >> 17;
  s ^= s << 5;
  return s;
}

/* One statement of the golden run, chosen by the generator. */
void statement(CLogWrapper* w, uint32_t& rng, int i, const std::string& longText) {
  static const char* const methods[] = {"scan", "a<b>", "x&y", "q\"uote'", "", nullptr};
  static const char* const files[] = {"scan.cpp", "dir/file.c", nullptr};
  static const int lines[] = {42, 0, -5, 123456};
  uint32_t r = next(rng);
  const char* method = methods[r % 6];
  const char* file = files[(r >> 3) % 3];
  int line = lines[(r >> 5) % 4];
  std::string longMethod;
  if ((r >> 7) % 97 == 0) {
    longMethod = std::string(600, 'm') + "<&>";
    method = longMethod.c_str();
  }
  void (*call)(CLogWrapper*, int, const char*, const char*, const char*, ...) =
      (r >> 9) % 5 == 0   ? traceMIN
      : (r >> 9) % 5 == 1 ? traceMID
      : (r >> 9) % 5 == 2 ? traceMAX
      : (r >> 9) % 5 == 3 ? traceEntry
                          : traceExit;
  switch ((r >> 12) % 13) {
    case 0: call(w, line, file, method, "value %d of %s", i, "name"); break;
    case 1: call(w, line, file, method, "plain text without conversions"); break;
    case 2: call(w, line, file, method, "%ld|%lu|%x|%X|%c|%%|%i|%u|%zu|%lld", -7L * i, 9UL * i,
                 i, i * 31u, 'a' + i % 26, -i, (unsigned)i, (size_t)i * 3, LLONG_MIN + i); break;
    case 3: call(w, line, file, method, "%5d|%-4s|%.3f|%08x|%+d", i % 1000, "ab", i / 7.0, i, i); break;
    case 4: call(w, line, file, method, "percent after: 100%% done %d", i); break;
    case 5: call(w, line, file, method, "%s", longText.c_str()); break;
    case 6: call(w, line, file, method, "%s", static_cast<const char*>(nullptr)); break;
    case 7: call(w, line, file, method, ""); break;
    case 8: call(w, line, file, method, "%d %ld %d", INT_MIN, LONG_MIN, INT_MAX); break;
    case 9: call(w, line, file, method, "utf8 \xc3\xa9 \xc3\xbc %s %c", "\xe2\x82\xac", 'z'); break;
    case 10: call(w, line, file, method, "tab\tand  spaces %s|%s", "<x>", "&"); break;
    case 11: call(w, line, file, method, "%s", "a %d and %s inside"); break;
    default: call(w, line, file, method, nullptr); break;
  }
}

/* The stamp of one line rebuilt from its own date and time in zone: the
   local time of that second, its milliseconds and the offset rule (the
   zone's standard offset, one hour more in daylight saving). */
bool stampConsistent(const std::string& stamp, const char* zone, time_t from, time_t to) {
  struct tm tm = {};
  int millis = 0;
  if (stamp.size() != 29 ||
      std::sscanf(stamp.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%3d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                  &tm.tm_hour, &tm.tm_min, &tm.tm_sec, &millis) != 7)
    return false;
  setenv("TZ", zone, 1);
  tzset();
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  tm.tm_isdst = -1;
  time_t t = mktime(&tm);
  if (t < from || t > to) return false;
  struct tm local;
  localtime_r(&t, &local);
  char date[64];
  strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
  long hours = timezone / -3600 + (local.tm_isdst > 0 ? 1 : 0);
  long minutes = labs((timezone / 60) % 60);
  char expect[96];
  std::snprintf(expect, sizeof expect, "%s.%03d%c%02ld:%02ld", date, millis, hours < 0 ? '-' : '+',
                labs(hours), minutes);
  return stamp == expect;
}

/* Hash of everything after the stamps, captured from the library before
   the record path was made allocation-free. */
const uint64_t kGoldenHash = 0xb1451011e914482dULL;

}  // namespace

TEST(FileHandlerHotPath, GoldenRunMatchesTheEarlierOutputByteForByte) {
  TempDir dir;
  inChild([&] {
    std::string props = dir.write(
        "g.properties",
        "hw.loggers.trcLogger.className=qlg_basiclogger\nhw.loggers.trcLogger.level=DEBUG_MAX\n"
        "hw.loggers.trcLogger.listenerNames=golden\ngolden.className=qlg_filehandler\n"
        "golden.fileName=" + dir.path() + "/golden.log\ngolden.maxFileBytes=524288\n"
        "golden.maxFiles=60\n");
    QlgToolkit_shutdown(); /* a toolkit the test process started earlier */
    initializeWrapper(props.c_str());
    CLogWrapper* w = getCLogHw();
    ASSERT_TRUE(w && w->active == 1 && w->trcLevel == 4);
    std::string longText(1500, 'L');
    for (int k = 0; k < 1500; k += 100) longText[k] = '%';
    uint32_t rng = 2463534242u;
    time_t from = time(nullptr);
    for (int i = 0; i < kRecords; i++) {
      if (i % kZoneSpan == 0) setenv("TZ", kZones[i / kZoneSpan % 4], 1);
      statement(w, rng, i, longText);
    }
    time_t to = time(nullptr);

    /* Oldest backup first, the active file last. */
    std::string all;
    for (int n = 59; n >= 1; n--) all += readFile(dir.file("golden" + std::to_string(n) + ".log"));
    all += readFile(dir.file("golden.log"));
    ASSERT_TRUE(readFile(dir.file("golden1.log")).size() > 0) << "no rollover happened";
    Hash hash;
    int count = 0;
    size_t at = 0;
    while (at < all.size()) {
      size_t end = all.find('\n', at);
      ASSERT_NE(end, std::string::npos);
      std::string line = all.substr(at, end + 1 - at);
      at = end + 1;
      ASSERT_LT(count, kRecords);
      const char* zone = kZones[count / kZoneSpan % 4];
      ASSERT_TRUE(stampConsistent(line.substr(0, 29), zone, from - 1, to + 1))
          << "record " << count << ": " << line;
      hash.add(line.substr(29));
      count++;
    }
    EXPECT_EQ(count, kRecords);
    char got[32];
    std::snprintf(got, sizeof got, "0x%016llxULL", (unsigned long long)hash.h);
    EXPECT_EQ(hash.h, kGoldenHash) << "hash of the lines after their stamps: " << got;
  });
}

namespace {

/* Starts the toolkit with logger "app" feeding file handler "fh" (formatter
   with the head "HEAD\n") and returns the logger. */
QlgObject* startFileLogger(const TempDir& dir, const std::string& handlerProps) {
  std::string props = dir.write(
      "h.properties", "app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=fh\n"
                      "fh.className=qlg_filehandler\nfh.fileName=" + dir.path() + "/t.log\n"
                      "fh.formatterName=headfmt\nheadfmt.className=hot_headfmt\n" + handlerProps);
  QlgToolkit_shutdown(); /* a toolkit the test process started earlier */
  if (!QlgToolkit_initialize(props.c_str())) return nullptr;
  QlgClass_registerFormatter("hot_headfmt", nullptr, nullptr, nullptr, nullptr, nullptr,
                             ardeltest::headText, nullptr, nullptr);
  return QlgObject_create("app", nullptr);
}

void logText(QlgObject* app, const char* text) { QlgLogger_logMin(app, "t.cpp", "f", 7, text, 0); }

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

int countOf(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
  return n;
}

}  // namespace

/* A file removed or moved away by another program: in every-record mode
   the very next record starts a new file with its head; with
   pathCheckInterval the records go on into the old file until the
   interval has passed. */
TEST(FileHandlerHotPath, RemovedOrMovedFileIsNoticedInBothModes) {
  struct Case {
    const char* interval;
    bool move;
  } cases[] = {{"0", false}, {"0", true}, {"300", false}, {"300", true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("pathCheckInterval ") + c.interval + (c.move ? ", moved" : ", removed"));
    TempDir dir;
    inChild([&] {
      QlgObject* app = startFileLogger(dir, std::string("fh.pathCheckInterval=") + c.interval + "\n");
      ASSERT_NE(app, nullptr);
      logText(app, "first");
      std::string active = dir.file("t.log");
      if (c.move)
        ASSERT_EQ(rename(active.c_str(), dir.file("moved.log").c_str()), 0);
      else
        ASSERT_EQ(unlink(active.c_str()), 0);
      logText(app, "second");
      bool interval = std::string(c.interval) != "0";
      if (interval) {
        EXPECT_FALSE(exists(active)) << "looked up before the interval had passed";
        usleep(400 * 1000);
      }
      logText(app, "third");
      std::string now = readFile(active);
      EXPECT_EQ(now.rfind("HEAD\n", 0), 0u) << now;
      EXPECT_EQ(countOf(now, "HEAD\n"), 1);
      EXPECT_EQ(countOf(now, " third\n"), 1);
      EXPECT_EQ(countOf(now, " second\n"), interval ? 0 : 1);
      if (c.move) {
        std::string moved = readFile(dir.file("moved.log"));
        EXPECT_EQ(countOf(moved, " first\n"), 1);
        EXPECT_EQ(countOf(moved, " second\n"), interval ? 1 : 0);
      }
    });
  }
}

/* A file emptied in place by another program: within a second the handler
   counts from the new size, so records that fit under the limit after the
   truncation do not roll the file over. */
TEST(FileHandlerHotPath, TruncationByAnotherProgramIsPickedUpWithinASecond) {
  for (const char* interval : {"0", "1000"}) {
    SCOPED_TRACE(std::string("pathCheckInterval ") + interval);
    TempDir dir;
    inChild([&] {
      QlgObject* app = startFileLogger(
          dir, std::string("fh.maxFileBytes=200\nfh.maxFiles=2\nfh.pathCheckInterval=") + interval + "\n");
      ASSERT_NE(app, nullptr);
      for (int i = 0; i < 3; i++) logText(app, "before the truncation");
      ASSERT_EQ(truncate(dir.file("t.log").c_str(), 0), 0);
      usleep(1100 * 1000);
      for (int i = 0; i < 3; i++) logText(app, "after");
      EXPECT_FALSE(exists(dir.file("t1.log"))) << "rolled over on a stale size";
      EXPECT_EQ(countOf(readFile(dir.file("t.log")), " after\n"), 3);
      /* And the limit still holds on the real size. */
      for (int i = 0; i < 6; i++) logText(app, "after");
      EXPECT_TRUE(exists(dir.file("t1.log")));
    });
  }
}

/* Several threads into one file: every record arrives once, whole, in its
   thread's order, and each is in the file when its call returns.  The last
   thread logs while it holds the toolkit lock a little longer, so that the
   others queue up behind it and its records are left to them to write. */
TEST(FileHandlerHotPath, GroupCommitKeepsEveryRecordWholeAndInThreadOrder) {
  TempDir dir;
  inChild([&] {
    QlgObject* app = startFileLogger(dir, "fh.maxFiles=1\n");
    ASSERT_NE(app, nullptr);
    const int kThreadCount = 4, kEach = 3000;
    std::vector<std::thread> pool;
    std::vector<int> lateRecords(kThreadCount, 0);
    for (int t = 0; t < kThreadCount; t++)
      pool.emplace_back([&, t] {
        for (int i = 0; i < kEach; i++) {
          std::string text = "t" + std::to_string(t) + " n" + std::to_string(i) + " end";
          bool hold = t == kThreadCount - 1 && i % 10 == 0;
          if (hold) {
            QlgToolkit_enter();
            usleep(300);
          }
          logText(app, text.c_str());
          if (hold) QlgToolkit_leave();
          if (t != kThreadCount - 1) usleep(30); /* keep pace with the holder */
          if (!hold && i % 300 == 299 &&
              readFile(dir.file("t.log")).find(" " + text + "\n") == std::string::npos)
            lateRecords[t]++;
        }
      });
    for (auto& th : pool) th.join();
    for (int t = 0; t < kThreadCount; t++) EXPECT_EQ(lateRecords[t], 0) << "thread " << t;
    std::string all = readFile(dir.file("t.log"));
    ASSERT_EQ(all.rfind("HEAD\n", 0), 0u);
    std::vector<int> nextOf(kThreadCount, 0);
    size_t at = 5;
    int lines = 0;
    while (at < all.size()) {
      size_t end = all.find('\n', at);
      ASSERT_NE(end, std::string::npos);
      std::string line = all.substr(at, end - at);
      at = end + 1;
      int t = -1, n = -1;
      size_t tpos = line.find(" t.cpp f 7 t");
      ASSERT_NE(tpos, std::string::npos) << line;
      ASSERT_EQ(std::sscanf(line.c_str() + tpos, " t.cpp f 7 t%d n%d end", &t, &n), 2) << line;
      ASSERT_EQ(line.substr(line.size() - 4), " end") << line;
      ASSERT_TRUE(t >= 0 && t < kThreadCount);
      ASSERT_EQ(n, nextOf[t]) << "thread " << t << " out of order";
      nextOf[t]++;
      lines++;
    }
    EXPECT_EQ(lines, kThreadCount * kEach);
  });
}
