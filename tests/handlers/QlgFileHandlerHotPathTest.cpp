// SPDX-License-Identifier: Apache-2.0
/*
 * The file handler's fast record path against what it must keep (the
 * golden run is with the POSIX-only rules):
 * - a file removed, moved away or emptied by another program is noticed, in
 *   the every-record mode and with pathCheckInterval;
 * - records of several threads all arrive, whole and in each thread's order.
 */
#include <ardel/QlgObject.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgToolkit.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/Recorder.h"
#include "support/TestSupport.h"

using ardeltest::inChild;
using ardeltest::readFile;
using ardeltest::TempDir;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

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
    if (!c.move && !ardeltest::kRemovedOpenFileVanishes) continue;
    SCOPED_TRACE(std::string("pathCheckInterval ") + c.interval + (c.move ? ", moved" : ", removed"));
    TempDir dir;
    inChild([&] {
      QlgObject* app = startFileLogger(dir, std::string("fh.pathCheckInterval=") + c.interval + "\n");
      ASSERT_NE(app, nullptr);
      logText(app, "first");
      std::string active = dir.file("t.log");
      if (c.move)
        fs::rename(active, dir.file("moved.log"));
      else
        ASSERT_TRUE(fs::remove(active));
      logText(app, "second");
      bool interval = std::string(c.interval) != "0";
      if (interval) {
        EXPECT_FALSE(fs::exists(active)) << "looked up before the interval had passed";
        std::this_thread::sleep_for(400ms);
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
      fs::resize_file(dir.file("t.log"), 0);
      std::this_thread::sleep_for(1100ms);
      for (int i = 0; i < 3; i++) logText(app, "after");
      EXPECT_FALSE(fs::exists(dir.file("t1.log"))) << "rolled over on a stale size";
      EXPECT_EQ(countOf(readFile(dir.file("t.log")), " after\n"), 3);
      /* And the limit still holds on the real size. */
      for (int i = 0; i < 6; i++) logText(app, "after");
      EXPECT_TRUE(fs::exists(dir.file("t1.log")));
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
            std::this_thread::sleep_for(300us);
          }
          logText(app, text.c_str());
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
