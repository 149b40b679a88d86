// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_multiproc_filehandler: copy-and-truncate rollover, no head or tail,
 * always appending, the report when a backup cannot be made, and the
 * guarantees between processes: several writers sharing one file lose no
 * record and split none, and writers killed at any point, in the middle of
 * a rollover included, neither stop the others nor lose or duplicate a
 * record; a copy cut short by a full device is tried again.
 */
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include <ardel/QlgLogger.h>
#include "handlers/QlgMultiProcFileHandler.h"
#include "handlers/FileHandlerFixture.h"

namespace {

using ardeltest::CaptureFd;
using ardeltest::readFile;
using ardeltest::TempDir;
using fhtest::exists;
using fhtest::ownKey;
using fhtest::Props;

class MPFileHandlerTest : public fhtest::FileHandlerFixture {
 protected:
  /* Always with a head and tail, which this class must never write. */
  QlgObject* handler(const Props& props) {
    return FileHandlerFixture::handler(props, true, "qlg_multiproc_filehandler");
  }
};

TEST_F(MPFileHandlerTest, SharesTheFileHandlerPropertiesButWritesNoHeadOrTail) {
  QlgObject* h = handler({{"fileName", dir_.file("mp.log")}, {"maxFiles", "5"}});
  ASSERT_NE(QlgFileHandler_data(h), nullptr);
  EXPECT_EQ(QlgFileHandler_data(h)->maxFiles, 5);
  log(h, {"a"});
  h->cls->slots.handler.close(h);
  log(h, {"b"});
  h->cls->slots.handler.open(h);
  h->cls->slots.handler.close(h);
  EXPECT_EQ(readFile(dir_.file("mp.log")), "a\nb\n");
}

TEST_F(MPFileHandlerTest, AlwaysAppendsAndAppendingFalseOnlySilencesReports) {
  dir_.write("keep.log", "old\n");
  CaptureFd err(2);
  QlgObject* h = handler({{"fileName", dir_.file("keep.log")}, {"appending", "false"},
                          {"logInternalErrs", "true"}, {"maxFiles", "0"}});
  log(h, {"new"});
  EXPECT_EQ(readFile(dir_.file("keep.log")), "old\nnew\n");
  EXPECT_EQ(err.text().find("QLGFH0077W"), std::string::npos);
}

TEST_F(MPFileHandlerTest, RolloverCopiesIntoBackupOneAndEmptiesTheActiveFileInPlace) {
  QlgObject* h = handler({{"fileName", dir_.file("r.log")}, {"maxFiles", "3"}, {"maxFileBytes", "6"}});
  log(h, {"r1", "r2"});
  struct stat before;
  ASSERT_EQ(stat(dir_.file("r.log").c_str(), &before), 0);
  // 6 bytes reached: rollover first
  EXPECT_EQ(ardeltest::stderrOf([&] { log(h, {"r3"}); }), "") << "a rollover whose copy is written and synced reports nothing";
  struct stat after;
  ASSERT_EQ(stat(dir_.file("r.log").c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino) << "the active file keeps its identity";
  EXPECT_EQ(readFile(dir_.file("r.log")), "r3\n");
  EXPECT_EQ(readFile(dir_.file("r1.log")), "r1\nr2\n");
  log(h, {"r4", "r5", "r6", "r7"});
  EXPECT_EQ(readFile(dir_.file("r.log")), "r7\n");
  EXPECT_EQ(readFile(dir_.file("r1.log")), "r5\nr6\n");
  EXPECT_EQ(readFile(dir_.file("r2.log")), "r3\nr4\n");
  EXPECT_FALSE(exists(dir_.file("r3.log")));
}

TEST_F(MPFileHandlerTest, WithTwoFilesTheBackupIsReplacedAndWithOneNeverMade) {
  QlgObject* two = handler({{"fileName", dir_.file("two.log")}, {"maxFiles", "2"}, {"maxFileBytes", "3"}});
  log(two, {"a1", "a2", "a3"});
  EXPECT_EQ(readFile(dir_.file("two1.log")), "a2\n");
  EXPECT_EQ(readFile(dir_.file("two.log")), "a3\n");
  QlgObject* one = handler({{"fileName", dir_.file("one.log")}, {"maxFiles", "1"}, {"maxFileBytes", "3"}});
  log(one, std::vector<std::string>(5, "xx"));
  EXPECT_EQ(readFile(dir_.file("one.log")).size(), 15u);
  EXPECT_FALSE(exists(dir_.file("one1.log")));
}

TEST_F(MPFileHandlerTest, BackupThatCannotBeCreatedPrintsErrOpeningAndStillTruncates) {
  ASSERT_EQ(mkdir(dir_.file("b1.log").c_str(), 0700), 0); /* backup 1 cannot be opened */
  QlgObject* h = handler({{"fileName", dir_.file("b.log")}, {"maxFiles", "2"}, {"maxFileBytes", "3"}});
  log(h, {"x1"});
  CaptureFd out(1);
  CaptureFd err(2);
  log(h, {"x2"});
  std::string backup = dir_.path() + "//b1.log";
  EXPECT_EQ(out.text(), "ERR opening " + backup + " pre rollover\n");
  EXPECT_NE(err.text().find("QLGMP0073W Could not write to the backup log file " + backup +
                            " during log file rollover."), std::string::npos);
  EXPECT_EQ(readFile(dir_.file("b.log")), "x2\n");
}

TEST_F(MPFileHandlerTest, FileThatCannotBeOpenedKeepsTheEventFromListeners) {
  std::string blocker = dir_.write("plain", "x");
  QlgObject* h = handler({{"fileName", blocker + "/sub/m.log"}});
  QlgObject* rec = make("rec", "test_recorder");
  QlgObject_addListener(h, rec);
  ardeltest::seen().clear();
  {
    CaptureFd err(2);
    log(h, {"lost"});
    EXPECT_NE(err.text().find("QLGFH0032E Property 'fileName' must be a valid file path"), std::string::npos);
  }
  EXPECT_TRUE(ardeltest::seen().empty());
  ASSERT_EQ(unlink(blocker.c_str()), 0);
  log(h, {"kept"});
  EXPECT_EQ(readFile(blocker + "/sub//m.log"), "kept\n");
  EXPECT_EQ(ardeltest::seen().size(), 1u);
}

TEST_F(MPFileHandlerTest, NullArgumentsAreIgnored) {
  QlgMPFileHandler_publish(nullptr, nullptr);
  QlgMPFileHandler_open(nullptr);
  QlgMPFileHandler_close(nullptr);
  QlgMPFileHandler_rollover(nullptr);
  QlgMPFileHandler_copyTruncate(nullptr);
  QlgObject* h = handler({{"fileName", dir_.file("n.log")}});
  QlgMPFileHandler_publish(h, nullptr);
  EXPECT_FALSE(exists(dir_.file("n.log")));
}

/* ---- several processes ---- */

const int kLineSlack = 64; /* longer than any record line of these tests */

/* A writer process: its own toolkit from the properties file, then
   `records` log calls through logger "soak". */
pid_t startWriter(const std::string& props, int writer, int records) {
  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid != 0) return pid;
  QlgToolkit_shutdown(); /* drop whatever toolkit the test process had */
  if (!QlgToolkit_initialize(props.c_str())) _exit(2);
  QlgObject* logger = QlgObject_create("soak", nullptr);
  if (!logger) _exit(3);
  for (int i = 0; i < records; i++)
    QlgLogger_logMin(logger, nullptr, nullptr, 0, "w%1$d r%2$d", QLG_PARM_INT, writer, QLG_PARM_INT, i, 0);
  _exit(0);
}

std::string soakProps(const TempDir& dir, int maxBytes, int maxFiles) {
  return dir.write("soak.properties",
                   "soak.className=qlg_basiclogger\n"
                   "soak.listenerNames=soakFile\n"
                   "soakFile.className=qlg_multiproc_filehandler\n"
                   "soakFile.fileName=" + dir.file("shared.log") + "\n"
                   "soakFile.maxFileBytes=" + std::to_string(maxBytes) + "\n"
                   "soakFile.maxFiles=" + std::to_string(maxFiles) + "\n"
                   "soakFile.MPFileSemKey=" + ownKey() + "\n");
}

/* Waits for pid until the deadline; kills it and returns -1 on time-out. */
int waitUntil(pid_t pid, time_t deadline) {
  for (;;) {
    int status = 0;
    pid_t r = waitpid(pid, &status, WNOHANG);
    if (r == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (time(nullptr) > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return -1;
    }
    usleep(5000);
  }
}

/* "dddd-dd-dd dd:dd:dd.ddd+dd:dd" */
bool isStamp(const std::string& s) {
  const char* shape = "dddd-dd-dd dd:dd:dd.ddd+dd:dd";
  if (s.size() != strlen(shape)) return false;
  for (size_t i = 0; i < s.size(); i++) {
    if (shape[i] == 'd' ? !isdigit((unsigned char)s[i])
                        : !(s[i] == shape[i] || (shape[i] == '+' && s[i] == '-')))
      return false;
  }
  return true;
}

struct Census {
  std::map<std::pair<int, int>, int> count; /* (writer, record) -> times seen */
  int broken = 0;           /* lines that are not one whole record */
  int brokenAtFileEnd = 0;  /* of these, cut-off last lines of a file */
  int cut = 0;              /* records cut short (by a SIGKILL in their write) */
  size_t largestFile = 0;
  int files = 0;
};

Census takeCensus(const TempDir& dir, int maxFiles) {
  Census c;
  for (int k = 0; k < maxFiles; k++) {
    std::string name = dir.path() + "/" + (k ? "/shared" + std::to_string(k) : "/shared") + ".log";
    if (!exists(name)) continue;
    c.files++;
    std::string text = readFile(name);
    c.largestFile = std::max(c.largestFile, text.size());
    size_t pos = 0;
    while (pos < text.size()) {
      size_t nl = text.find('\n', pos);
      bool cut = nl == std::string::npos;
      std::string line = text.substr(pos, cut ? std::string::npos : nl - pos);
      pos = cut ? text.size() : nl + 1;
      int w = -1, r = -1, used = 0;
      size_t sp = line.find(" w");
      bool whole = !cut && sp != std::string::npos && isStamp(line.substr(0, sp)) &&
                   sscanf(line.c_str() + sp, " w%d r%d%n", &w, &r, &used) == 2 &&
                   sp + (size_t)used == line.size();
      /* The kernel may end a write cut by SIGKILL after its first page:
         the next record then follows the cut one on the same line. */
      size_t k = line.size() > 29 ? line.size() - 29 : 0;
      while (!whole && !cut && k > 0 && !isStamp(line.substr(k, 29))) k--;
      size_t at = k > 0 ? line.find(" w", k) : std::string::npos;
      if (!whole && at != std::string::npos && sscanf(line.c_str() + at, " w%d r%d%n", &w, &r, &used) == 2 &&
          at + (size_t)used == line.size()) {
        c.count[{w, r}]++;
        c.cut++;
      } else if (whole) {
        c.count[{w, r}]++;
      } else {
        c.broken++;
        if (cut) c.brokenAtFileEnd++;
      }
    }
  }
  return c;
}

TEST(MPFileHandlerProcesses, FourWritersLoseNoRecordAndSplitNone) {
  TempDir dir;
  const int kWriters = 4, kRecords = 20000, kMaxBytes = 32768, kMaxFiles = 200;
  std::string props = soakProps(dir, kMaxBytes, kMaxFiles);
  std::vector<pid_t> pids;
  for (int w = 0; w < kWriters; w++) pids.push_back(startWriter(props, w, kRecords));
  time_t deadline = time(nullptr) + 50;
  for (pid_t p : pids) EXPECT_EQ(waitUntil(p, deadline), 0) << "writer failed or timed out";
  Census c = takeCensus(dir, kMaxFiles);
  EXPECT_EQ(c.broken, 0);
  EXPECT_EQ(c.count.size(), (size_t)(kWriters * kRecords)) << "every record is found";
  int duplicates = 0;
  for (const auto& e : c.count) duplicates += e.second != 1;
  EXPECT_EQ(duplicates, 0) << "no record is found twice";
  EXPECT_GT(c.files, 10) << "the run must have rolled over many times";
  EXPECT_LT(c.files, kMaxFiles) << "nothing may have been dropped as the oldest backup";
  EXPECT_LE(c.largestFile, (size_t)(kMaxBytes + kLineSlack)) << "at most one record past the limit";
}

/* Writers SIGKILLed one after another, many of them in the middle of a
   rollover, while three others write: the survivors do not stall, and no
   record of anyone is split, lost from the survivors or found twice. */
TEST(MPFileHandlerProcesses, WritersKilledMidRolloverLoseAndDuplicateNothing) {
  TempDir dir;
  const int kRecords = 20000, kMaxFiles = 400;
  std::string props = soakProps(dir, 65536, kMaxFiles);
  std::vector<pid_t> pids;
  for (int w = 0; w < 3; w++) pids.push_back(startWriter(props, w, kRecords));
  unsigned seed = (unsigned)getpid();
  int kills = 0;
  for (time_t end = time(nullptr) + 3; time(nullptr) < end; kills++) {
    pid_t victim = startWriter(props, 10 + kills, 1000000);
    usleep(5000 + rand_r(&seed) % 40000);
    ASSERT_EQ(kill(victim, SIGKILL), 0);
    waitpid(victim, nullptr, 0);
  }
  time_t deadline = time(nullptr) + 40;
  for (pid_t p : pids) EXPECT_EQ(waitUntil(p, deadline), 0) << "a survivor stalled or failed";
  /* The next process to write settles a rollover its victim left half done. */
  EXPECT_EQ(waitUntil(startWriter(props, 3, 1), deadline), 0);
  Census c = takeCensus(dir, kMaxFiles);
  EXPECT_FALSE(exists(dir.file("shared.log.rollover")));
  /* Only a victim's own last record may be cut short. */
  EXPECT_EQ(c.broken, c.brokenAtFileEnd);
  EXPECT_LE(c.broken + c.cut, kills);
  EXPECT_LT(c.files, kMaxFiles);
  for (int w = 0; w < 3; w++)
    for (int r = 0; r < kRecords; r++) EXPECT_EQ((c.count[{w, r}]), 1) << "w" << w << " r" << r;
  int duplicates = 0;
  for (const auto& e : c.count) duplicates += e.second > 1;
  EXPECT_EQ(duplicates, 0) << "after " << kills << " kills";
}

/* A full device (here a file size limit) cuts the copy into the backup
   short: the active file keeps every record, no backup ends in half a
   record, and the rollover succeeds once there is room. */
TEST_F(MPFileHandlerTest, CopyCutShortLeavesTheActiveFileAndIsRetried) {
  std::string lines;
  for (int i = 0; i < 10; i++) lines += "line-" + std::to_string(10 + i) + "\n";
  std::string active = dir_.write("d.log", lines);
  ardeltest::inChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    QlgObject* h = handler({{"fileName", active}, {"maxFiles", "3"}, {"maxFileBytes", "50"}});
    struct rlimit lim, small;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &lim), 0);
    small = lim;
    small.rlim_cur = 40;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    log(h, {"x"}); /* the copy stops at 40 bytes; the record cannot be written either */
    EXPECT_EQ(readFile(active), lines);
    EXPECT_FALSE(exists(dir_.file("d1.log")));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
    log(h, {"y"});
    EXPECT_EQ(readFile(dir_.file("d1.log")), lines);
    EXPECT_EQ(readFile(active), "y\n");
  });
}

}  // namespace
