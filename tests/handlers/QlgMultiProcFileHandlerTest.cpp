// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_multiproc_filehandler: copy-and-truncate rollover, and writers in
 * processes of their own (see startWorker) that lose, split or duplicate no
 * record, even when killed mid-rollover.
 */
#include <string.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include <ardel/QlgLogger.h>
#include "handlers/FileHandlerFixture.h"
#include "platform/CxFile.h"

namespace {

using namespace fhtest;
namespace fs = std::filesystem;

class MPFileHandlerTest : public fhtest::FileHandlerFixture {
 protected:
  /* Always with a head and tail, which this class must never write. */
  QlgObject* handler(const Props& props) {
    return FileHandlerFixture::handler(props, true, "qlg_multiproc_filehandler");
  }
};

/* Always appending (appending=false only silences reports), never a head
   or tail, and a rollover copies into backup 1 and empties the active file
   in place, silently. */
TEST_F(MPFileHandlerTest, AppendsWithoutHeadOrTailAndRollsOverByCopyingInPlace) {
  const std::string absent = kAbsent;
  const RollCase cases[] = {
      {{{"appending", "false"}, {"logInternalErrs", "true"}, {"maxFiles", "0"}}, "old\n", {"new"},
       {{"", "old\nnew\n"}}},
      {{{"maxFiles", "3"}, {"maxFileBytes", "6"}}, nullptr, {"r1", "r2", "r3", "r4", "r5", "r6", "r7"},
       {{"", "r7\n"}, {"1", "r5\nr6\n"}, {"2", "r3\nr4\n"}, {"3", absent}}},
      {{{"maxFiles", "2"}, {"maxFileBytes", "3"}}, nullptr, {"a1", "a2", "a3"}, {{"", "a3\n"}, {"1", "a2\n"}}},
      {{{"maxFileBytes", "3"}, {"maxFiles", "1"}}, nullptr, {"xx", "xx", "xx"},
       {{"", "xx\nxx\nxx\n"}, {"1", absent}}}};
  char n = 'a';
  for (const auto& c : cases) {
    std::string base(1, n++);
    SCOPED_TRACE(base);
    CaptureFd err(2);
    QlgObject* h = handler(rollProps(c, base));
    log(h, {c.records[0]});
    CxFileId before{}, after{};
    ASSERT_TRUE(CxStatus_isOk(CxFile_pathId(dir_.file(base + ".log").c_str(), &before)));
    log(h, std::vector<std::string>(c.records.begin() + 1, c.records.end()));
    close(h);
    h->cls->slots.handler.open(h);
    close(h);
    ASSERT_TRUE(CxStatus_isOk(CxFile_pathId(dir_.file(base + ".log").c_str(), &after)));
    EXPECT_EQ(before.inode, after.inode) << "the active file keeps its identity";
    EXPECT_EQ(err.text(), "");
    expectFiles(c, base);
  }
}

TEST_F(MPFileHandlerTest, BackupThatCannotBeCreatedPrintsErrOpeningAndStillTruncates) {
  ASSERT_TRUE(fs::create_directory(dir_.file("b1.log"))); /* backup 1 cannot be opened */
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
  QlgObject* h = handler({{"fileName", blocker + "/sub/m.log"}, {"listenerNames", make("test_recorder")->name}});
  EXPECT_HAS(stderrOf([&] { log(h, {"lost"}); }), "QLGFH0032E Property 'fileName' must be a valid file path");
  EXPECT_EQ(seenList(), "");
  ASSERT_TRUE(fs::remove(blocker));
  log(h, {"kept"});
  EXPECT_EQ(readFile(blocker + "/sub//m.log"), "kept\n");
  EXPECT_EQ(seenList(), "kept;");
}

/* ---- several processes ---- */

const int kLineSlack = 64; /* longer than any record line of these tests */

/* A writer process: its own toolkit from the properties file, then
   `records` log calls through logger "soak"; once its first record is out
   it leaves the file <properties>.<writer> as a sign of life.  arg:
   "<writer> <records> <properties>". */
ARDEL_TEST_WORKER(soakWriter) {
  int writer = 0, records = 0, at = 0;
  if (sscanf(arg.c_str(), "%d %d %n", &writer, &records, &at) != 2) return 4;
  std::string props = arg.substr((size_t)at);
  QlgToolkit_shutdown(); /* drop whatever toolkit the test process had */
  if (!QlgToolkit_initialize(props.c_str())) return 2;
  QlgObject* logger = QlgObject_create("soak", nullptr);
  if (!logger) return 3;
  for (int i = 0; i < records; i++) {
    QlgLogger_logMin(logger, nullptr, nullptr, 0, "w%1$d r%2$d", QLG_PARM_INT, writer, QLG_PARM_INT, i, 0);
    if (i == 0) ardeltest::writeFile(props + "." + std::to_string(writer), "");
  }
  return 0;
}

CxProcess startWriter(const std::string& props, int writer, int records) {
  return ardeltest::startWorker(soakWriter, std::to_string(writer) + " " + std::to_string(records) + " " + props);
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

/* "dddd-dd-dd dd:dd:dd.ddd+dd:dd" */
bool isStamp(const std::string& s) {
  static const std::regex stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d");
  return std::regex_match(s, stamp);
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
      /* The kernel may end a write cut by SIGKILL after its first page:
         the next record then follows the cut one on the same line. */
      int w = -1, r = -1, used = 0;
      size_t k = line.size() > 29 ? line.size() - 29 : 0;
      while (!cut && k > 0 && !isStamp(line.substr(k, 29))) k--;
      if (!cut && isStamp(line.substr(k, 29)) &&
          sscanf(line.c_str() + k + 29, " w%d r%d%n", &w, &r, &used) == 2 && k + 29 + (size_t)used == line.size()) {
        c.count[{w, r}]++;
        c.cut += k > 0;
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
  const int kWriters = 4, kRecords = ardeltest::kSoakRecords, kMaxBytes = ardeltest::kSoakFileBytes,
            kMaxFiles = 200;
  std::string props = soakProps(dir, kMaxBytes, kMaxFiles);
  std::vector<CxProcess> writers;
  for (int w = 0; w < kWriters; w++) writers.push_back(startWriter(props, w, kRecords));
  time_t deadline = time(nullptr) + 50;
  for (CxProcess& w : writers) EXPECT_EQ(ardeltest::finishWorker(w, deadline), 0) << "writer failed or timed out";
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

/* Writers killed one after another, soon after their first record and
   many of them in the middle of a rollover, while three others write: the
   survivors do not stall, and no record of anyone is split, lost from the
   survivors or found twice. */
TEST(MPFileHandlerProcesses, WritersKilledMidRolloverLoseAndDuplicateNothing) {
  TempDir dir;
  const int kRecords = ardeltest::kSoakRecords, kMaxFiles = 400;
  std::string props = soakProps(dir, ardeltest::kSoakFileBytes * 2, kMaxFiles);
  std::vector<CxProcess> writers;
  for (int w = 0; w < 3; w++) writers.push_back(startWriter(props, w, kRecords));
  std::minstd_rand rng((unsigned)time(nullptr));
  int kills = 0;
  for (time_t end = time(nullptr) + 3; time(nullptr) < end; kills++) {
    CxProcess victim = startWriter(props, 10 + kills, 1000000);
    std::string alive = props + "." + std::to_string(10 + kills);
    for (int i = 0; i < 2000 && !fhtest::exists(alive); i++) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::microseconds(5000 + rng() % 40000));
    ardeltest::killWorker(victim);
  }
  time_t deadline = time(nullptr) + 40;
  for (CxProcess& w : writers) EXPECT_EQ(ardeltest::finishWorker(w, deadline), 0) << "a survivor stalled or failed";
  /* The next process to write settles a rollover its victim left half done. */
  CxProcess last = startWriter(props, 3, 1);
  EXPECT_EQ(ardeltest::finishWorker(last, deadline), 0);
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

}  // namespace
