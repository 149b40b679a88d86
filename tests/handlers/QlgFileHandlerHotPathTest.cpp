// SPDX-License-Identifier: Apache-2.0
/*
 * The file handler's fast record path against what it must keep (the
 * golden run is with the POSIX-only rules):
 * - a file removed, moved away or emptied by another program is noticed, in
 *   the every-record mode and with pathCheckInterval;
 * - records of several threads all arrive, whole and in each thread's order.
 */
#include <ardel/QlgLogger.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "handlers/FileHandlerFixture.h"

using namespace fhtest;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

using HotPathTest = fhtest::FileHandlerFixture;

/* A file removed or moved away by another program, or its directory
   removed: in every-record mode the very next record starts a new file
   (with its head, where the class writes one); with pathCheckInterval the
   records go on into the old file until the interval has passed. */
TEST_F(HotPathTest, RemovedOrMovedFileIsNoticedInBothModes) {
  enum { kRemove, kMove, kRemoveDir };
  const char *fh = "qlg_filehandler", *mp = "qlg_multiproc_filehandler";
  struct { const char* cls; const char* interval; int act; std::string now, moved; } cases[] = {
      {fh, "0", kRemove, "HEAD\nsecond\nthird\n", ""},
      {fh, "0", kMove, "HEAD\nsecond\nthird\n", "HEAD\nfirst\n"},
      {fh, "300", kRemove, "HEAD\nthird\n", ""},
      {fh, "300", kMove, "HEAD\nthird\n", "HEAD\nfirst\nsecond\n"},
      {mp, "0", kRemove, "second\nthird\n", ""},
      {mp, "0", kMove, "second\nthird\n", "first\n"},
      {mp, "0", kRemoveDir, "second\nthird\n", ""}};
  char n = 'a';
  for (const auto& c : cases) {
    if (c.act != kMove && !ardeltest::kRemovedOpenFileVanishes) continue;
    SCOPED_TRACE(std::string(c.cls) + " pathCheckInterval " + c.interval + " case " + std::to_string(c.act));
    std::string sub = dir_.file(std::string(1, n++)), active = sub + "/x.log";
    QlgObject* h = handler({{"fileName", active}, {"pathCheckInterval", c.interval}}, true, c.cls);
    log(h, {"first"});
    if (c.act == kMove)
      fs::rename(active, sub + ".moved");
    else
      ASSERT_GT(fs::remove_all(c.act == kRemove ? active : sub), 0u);
    log(h, {"second"});
    if (std::string(c.interval) != "0") {
      EXPECT_FALSE(fs::exists(active)) << "looked up before the interval had passed";
      std::this_thread::sleep_for(400ms);
    }
    log(h, {"third"});
    EXPECT_EQ(readFile(active), c.now);
    if (c.act == kMove) { EXPECT_EQ(readFile(sub + ".moved"), c.moved); }
    close(h);
  }
}

/* Every-record mode, again and again: each removal or move is noticed by
   the next record, whichever thread logs it (also after the thread that
   opened the file has ended), with other names in the directory coming and
   going in between. */
TEST_F(HotPathTest, EveryRemovalIsNoticedWhicheverThreadLogs) {
  std::string active = dir_.file("r.log");
  QlgObject* h = handler({{"fileName", active}}, true);
  std::thread([&] { log(h, {"0"}); }).join();
  for (int i = 1; i <= 12; i++) {
    SCOPED_TRACE(i);
    dir_.write("other" + std::to_string(i), "x");
    log(h, {"keep"});
    std::string moved = dir_.file("moved" + std::to_string(i));
    bool remove = i % 2 == 0 && ardeltest::kRemovedOpenFileVanishes;
    if (remove)
      fs::remove(active);
    else
      fs::rename(active, moved);
    auto next = [&] { log(h, {std::to_string(i)}); };
    if (i % 3 == 0) std::thread(next).join();
    else next();
    EXPECT_EQ(readFile(active), "HEAD\n" + std::to_string(i) + "\n");
    if (!remove) { EXPECT_EQ(readFile(moved), "HEAD\n" + std::to_string(i - 1) + "\nkeep\n"); }
  }
  close(h);
}

/* A file emptied in place by another program: within a second the handler
   counts from the new size, so records that fit under the limit after the
   truncation do not roll the file over; the limit still holds on the real
   size. */
TEST_F(HotPathTest, TruncationByAnotherProgramIsPickedUpWithinASecond) {
  for (const char* interval : {"0", "1000"}) {
    SCOPED_TRACE(std::string("pathCheckInterval ") + interval);
    std::string active = dir_.file(std::string("t") + interval[0] + "x.log");
    QlgObject* h = handler({{"fileName", active}, {"maxFileBytes", "200"}, {"maxFiles", "2"},
                            {"pathCheckInterval", interval}});
    log(h, std::vector<std::string>(3, std::string(65, 'b')));
    fs::resize_file(active, 0);
    std::this_thread::sleep_for(1100ms);
    log(h, {"after", "after", "after"});
    EXPECT_FALSE(fs::exists(dir_.file(std::string("t") + interval[0] + "x1.log"))) << "rolled over on a stale size";
    EXPECT_EQ(readFile(active), "after\nafter\nafter\n");
    log(h, std::vector<std::string>(40, "after"));
    EXPECT_TRUE(fs::exists(dir_.file(std::string("t") + interval[0] + "x1.log")));
  }
}

/* Several threads into one file: every record arrives once, whole, in its
   thread's order, and each is in the file when its call returns.  The last
   thread logs while it holds the toolkit lock a little longer, so that the
   others queue up behind it and its records are left to them to write. */
TEST(FileHandlerHotPath, GroupCommitKeepsEveryRecordWholeAndInThreadOrder) {
  TempDir dir;
  /* Logger "app" feeds file handler "fh", whose formatter writes the head "HEAD\n". */
  ardeltest::withToolkit("app.className=qlg_basiclogger\napp.level=DEBUG_MIN\napp.listenerNames=fh\n"
                         "fh.className=qlg_filehandler\nfh.fileName=" + dir.path() + "/t.log\n"
                         "fh.formatterName=headfmt\nheadfmt.className=hot_headfmt\nfh.maxFiles=1\n", [&] {
    QlgClass_registerFormatter("hot_headfmt", nullptr, nullptr, nullptr, nullptr, nullptr, ardeltest::headText, nullptr, nullptr);
    QlgObject* app = QlgObject_create("app", nullptr);
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
            std::this_thread::sleep_for(300us);
          }
          QlgLogger_logMin(app, "t.cpp", "f", 7, text.c_str(), 0);
          if (hold) QlgToolkit_leave();
          if (t != kThreadCount - 1) std::this_thread::sleep_for(30us); /* keep pace with the holder */
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
    for (size_t end; at < all.size(); at = end + 1, lines++) {
      end = all.find('\n', at);
      ASSERT_NE(end, std::string::npos);
      std::string line = all.substr(at, end - at);
      size_t tpos = line.find(" t.cpp f 7 t");
      int t = -1, n = -1, used = 0;
      ASSERT_TRUE(tpos != std::string::npos &&
                  std::sscanf(line.c_str() + tpos, " t.cpp f 7 t%d n%d end%n", &t, &n, &used) == 2 &&
                  tpos + used == line.size() && t >= 0 && t < kThreadCount) << line;
      ASSERT_EQ(n, nextOf[t]++) << "thread " << t << " out of order";
    }
    EXPECT_EQ(lines, kThreadCount * kEach);
  });
}

}  // namespace
