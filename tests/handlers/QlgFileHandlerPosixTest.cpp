// SPDX-License-Identifier: Apache-2.0
/*
 * The file handlers' rules that only POSIX systems have: FIFOs and planted
 * links at the log path, file modes, paths longer than Windows allows, a
 * full device, the multi-process handler's size note against another
 * program's truncation and appending, and the golden run (100,000 varied
 * trace statements whose lines after the stamps hash to what the earlier
 * library wrote, in a POSIX build: 64-bit long, POSIX zone rules).
 */
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>

#include <climits>
#include <cstdint>

#include <ardel/CLogWrapper.h>
#include "handlers/FileHandlerFixture.h"

namespace {

using namespace fhtest;
using PosixFileHandlerTest = fhtest::FileHandlerFixture;

const char* const kClasses[] = {"qlg_filehandler", "qlg_multiproc_filehandler"};

/* Opening a FIFO for writing waits for a reader, and writing one waits once
   its buffer is full: the handler must do neither, report the path, and
   use it once it is a file again.  The alarm turns a wait into a failure. */
TEST_F(PosixFileHandlerTest, FifoAtTheLogPathIsReportedNeverWaitedOnAndRetried) {
  for (const char* cls : kClasses) {
    SCOPED_TRACE(cls);
    std::string path = dir_.file(std::string(cls) + ".log");
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    ardeltest::inChild([&] {
      alarm(20);
      QlgObject* h = handler({{"fileName", path}}, false, cls);
      EXPECT_HAS(ardeltest::stderrOf([&] { log(h, {"lost"}); }), strerror(ENXIO));
      ASSERT_EQ(unlink(path.c_str()), 0);
      log(h, {"kept"});
      EXPECT_EQ(readFile(path), "kept\n");
    });
  }
}

/* A link at the log name in a directory anyone can write is followed only
   when its owner is the process's user or the directory's owner. */
TEST_F(PosixFileHandlerTest, LinkPlantedInASharedDirectoryIsFollowedOnlyForTrustedOwners) {
  if (geteuid() != 0) GTEST_SKIP() << "planting a link owned by another user needs root";
  const uid_t other = 54321;
  struct { uid_t linkOwner, dirOwner; bool followed; } cases[] = {
      {other, 0, false}, {other, other, true}, {0, other, true}};
  int n = 0;
  for (const char* cls : kClasses) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(cls) + " link " + std::to_string(c.linkOwner) + " dir " +
                   std::to_string(c.dirOwner));
      std::string shared = dir_.file("pub" + std::to_string(++n));
      std::string target = dir_.write("secret" + std::to_string(n), "secret\n");
      ASSERT_EQ(mkdir(shared.c_str(), 0777), 0);
      ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
      ASSERT_EQ(chown(shared.c_str(), c.dirOwner, c.dirOwner), 0);
      ASSERT_EQ(symlink(target.c_str(), (shared + "/app.log").c_str()), 0);
      ASSERT_EQ(lchown((shared + "/app.log").c_str(), c.linkOwner, c.linkOwner), 0);
      CaptureFd err(2);
      log(handler({{"fileName", shared + "/app.log"}}, false, cls), {"x"});
      EXPECT_EQ(readFile(target), c.followed ? "secret\nx\n" : "secret\n");
      if (!c.followed) { EXPECT_HAS(err.text(), strerror(ELOOP)); }
    }
  }
}

/* A name of the full 260 characters composes to a longer path (the base
   name keeps its separator), which Windows paths cannot be: the file must
   still count as present between records.  It is created with the
   configured permission. */
TEST_F(PosixFileHandlerTest, LongestAcceptedNameIsOpenedOnceWithOneHeadAndTheConfiguredPermission) {
  std::string middle(260 - dir_.path().size() - 1 - 7, 'd');
  for (size_t i = 100; i + 1 < middle.size(); i += 101) middle[i] = '/';
  QlgObject* h = handler({{"fileName", dir_.path() + "/" + middle + "/lp.log"}, {"filePermission", "0604"}}, true);
  ASSERT_NE(data(h)->path, nullptr);
  mode_t old = umask(0);
  log(h, {"a", "b", "c"});
  umask(old);
  EXPECT_EQ(readFile(path(h)), "HEAD\na\nb\nc\n");
  struct stat st;
  ASSERT_EQ(stat(path(h).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0604u);
}

/* Runs body with files limited to `bytes`, as a full device would cut them,
   and lifts the limit again. */
void withFileSizeLimit(rlim_t bytes, const std::function<void()>& body) {
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit lim, small;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &lim), 0);
  small = lim;
  small.rlim_cur = bytes;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  body();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
}

TEST_F(PosixFileHandlerTest, FullDeviceIsReportedAndWritingResumesWhenThereIsRoomAgain) {
  std::string path = dir_.file("full.log");
  ardeltest::inChild([&] {
    QlgObject* h = handler({{"fileName", path}, {"maxFiles", "1"}});
    /* A pipe, not a file: the size limit would cut a captured file too. */
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    fflush(stderr);
    int saved = dup(2);
    dup2(fds[1], 2);
    ::close(fds[1]);
    /* 11 bytes fit, the second record is cut at 16, then nothing */
    withFileSizeLimit(16, [&] { log(h, {"0123456789", "abcdefghij", "ABCDEFGHIJ"}); });
    fflush(stderr);
    dup2(saved, 2);
    ::close(saved);
    char buf[8192];
    ssize_t n = read(fds[0], buf, sizeof buf);
    ::close(fds[0]);
    std::string text(buf, n > 0 ? (size_t)n : 0);
    size_t first = text.find(strerror(EFBIG));
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(strerror(EFBIG), first + 1), std::string::npos) << "each failed write is reported";
    log(h, {"room again"});
    EXPECT_EQ(readFile(path), "0123456789\nabcderoom again\n");
  });
}

/* The multi-process handler's copy into the backup cut short: the active
   file keeps every record, no backup ends in half a record, and the
   rollover succeeds once there is room. */
TEST_F(PosixFileHandlerTest, MultiProcessCopyCutShortLeavesTheActiveFileAndIsRetried) {
  std::string lines;
  for (int i = 0; i < 10; i++) lines += "line-" + std::to_string(10 + i) + "\n";
  std::string active = dir_.write("d.log", lines);
  ardeltest::inChild([&] {
    QlgObject* h = handler({{"fileName", active}, {"maxFiles", "3"}, {"maxFileBytes", "50"}}, true,
                           "qlg_multiproc_filehandler");
    withFileSizeLimit(40, [&] {
      log(h, {"x"}); /* the copy stops at 40 bytes; the record cannot be written either */
      EXPECT_EQ(readFile(active), lines);
      EXPECT_FALSE(fhtest::exists(dir_.file("d1.log")));
    });
    log(h, {"y"});
    EXPECT_EQ(readFile(dir_.file("d1.log")), lines);
    EXPECT_EQ(readFile(active), "y\n");
  });
}

/* qlg_multiproc_filehandler takes the size from the note the last lock
   holder left, but only the file itself starts a rollover, and what another
   program does to the file (truncation, appending) counts within a second. */
TEST_F(PosixFileHandlerTest, MultiProcessHandlerCountsWhatAnotherProgramDidOverItsStaleSizeNote) {
  auto mp = [&](const char* name) {
    return handler({{"fileName", dir_.file(name)}, {"maxFiles", "2"}, {"maxFileBytes", "9"}}, false,
                   "qlg_multiproc_filehandler");
  };
  QlgObject* t = mp("t.log");
  log(t, {"r1", "r2"});  // 6 bytes noted
  ASSERT_EQ(truncate(dir_.file("t.log").c_str(), 0), 0);
  log(t, {"r3", "r4"});  // the note says 6 + 3 = 9: due, but the file holds 3
  EXPECT_EQ(readFile(dir_.file("t.log")), "r3\nr4\n");
  EXPECT_FALSE(fhtest::exists(dir_.file("t1.log"))) << "rolled over on the note alone";
  QlgObject* g = mp("g.log");
  log(g, {"r1"});
  int fd = open(dir_.file("g.log").c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "outside\n", 8), 8);
  ::close(fd);
  usleep(1100 * 1000);
  log(g, {"r2"});
  EXPECT_EQ(readFile(dir_.file("g1.log")), "r1\noutside\n");
  EXPECT_EQ(readFile(dir_.file("g.log")), "r2\n");
}

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
  static void (*const calls[])(CLogWrapper*, int, const char*, const char*, const char*, ...) = {
      traceMIN, traceMID, traceMAX, traceEntry, traceExit};
  auto call = calls[(r >> 9) % 5];
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
    EXPECT_EQ(hash.h, kGoldenHash) << "hash of the lines after their stamps: " << std::hex << hash.h;
  });
}

}  // namespace
