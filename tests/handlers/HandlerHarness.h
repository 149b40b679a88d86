// SPDX-License-Identifier: Apache-2.0
// What the handler suites share: a started toolkit with the recorder and
// two formatters of bare message lines (one with a head and tail)
// registered, objects named for the test alone and released after it, one
// event published at a time, and on POSIX systems helper programs started
// with their output in files and conditions polled for.
#ifndef ARDEL_TEST_HANDLERHARNESS_H
#define ARDEL_TEST_HANDLERHARNESS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "support/Recorder.h"
#include "support/TestSupport.h"

#if !defined(_WIN32)
#include <spawn.h>
extern char** environ;
#endif

#define EXPECT_HAS(text, needle) EXPECT_NE((text).find(needle), std::string::npos) << (text)

namespace htest {

using ardeltest::CaptureFd;
using ardeltest::inChild;
using ardeltest::readFile;
using ardeltest::seen;
using ardeltest::seenList;
using ardeltest::stderrOf;
using ardeltest::TempDir;
using Props = std::vector<std::pair<std::string, std::string>>;

// How often what occurs in text.
inline size_t count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
  return n;
}

// Publishes one event of level carrying text to h; dress adds to it first.
inline void publish(QlgObject* h, int level, const std::string& text,
                    const std::function<void(QlgEvent*)>& dress = {}) {
  QlgEvent* e = QlgEvent_createTagged(level, nullptr, 0, 0, text.c_str(), 0);
  ASSERT_NE(e, nullptr);
  if (dress) dress(e);
  h->cls->slots.handler.publish(h, e);
  QlgEvent_free(e);
}

class HandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    QlgClass_registerFormatter("test_bare", nullptr, nullptr, nullptr, nullptr, ardeltest::bareMessage, nullptr,
                               nullptr, nullptr);
    QlgClass_registerFormatter("test_headtail", nullptr, nullptr, nullptr, nullptr, ardeltest::bareMessage,
                               ardeltest::headText, ardeltest::tailText, nullptr);
    ardeltest::registerRecorder();
    ardeltest::seen().clear();
    static int serial = 0;
    prefix_ = "test.h" + std::to_string(++serial) + ".";
  }
  void TearDown() override {
    for (auto it = objects_.rbegin(); it != objects_.rend(); ++it) QlgObject_release(*it);
  }
  // An object of class cls named <prefix_><name> ("h<n>" for the n-th
  // object made when none is given), with props stored in order; released after the test.
  QlgObject* make(const char* cls, const Props& props = {}, std::string name = "") {
    if (name.empty()) name = "h" + std::to_string(made_++);
    QlgObject* obj = QlgObject_create((prefix_ + name).c_str(), cls);
    EXPECT_NE(obj, nullptr) << name;
    if (!obj) return obj;
    objects_.push_back(obj);
    for (const auto& p : props) QlgObject_storeProperty(obj, p.first.c_str(), p.second.c_str());
    return obj;
  }
  // A handler of class cls whose formatter is a new object of fmtClass
  // (none when null), then props.
  QlgObject* handler(const char* cls, const char* fmtClass, const Props& props = {}) {
    QlgObject* h = make(cls);
    QlgHandler_setFormatter(h, fmtClass ? make(fmtClass) : nullptr);
    for (const auto& p : props) QlgObject_storeProperty(h, p.first.c_str(), p.second.c_str());
    return h;
  }
  // Releases o before the end of the test.
  void release(QlgObject* o) {
    objects_.erase(std::find(objects_.begin(), objects_.end(), o));
    QlgObject_release(o);
  }

  std::string prefix_;
  std::vector<QlgObject*> objects_;
  int made_ = 0;
};

#if !defined(_WIN32)
// Whether done became true, polled every 20 ms for up to ms milliseconds.
inline bool waitFor(const std::function<bool()>& done, int ms) {
  for (int i = 0; i < ms / 20; i++, usleep(20000))
    if (done()) return true;
  return done();
}

// Starts the program args[0]; its standard output and error go to the
// files out and err when named.  The process id, -1 if it did not start.
inline pid_t spawn(std::vector<std::string> args, const std::string& out = "", const std::string& err = "") {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  if (!out.empty()) posix_spawn_file_actions_addopen(&fa, 1, out.c_str(), O_WRONLY | O_CREAT, 0600);
  if (!err.empty()) posix_spawn_file_actions_addopen(&fa, 2, err.c_str(), O_WRONLY | O_CREAT, 0600);
  pid_t pid = -1;
  if (posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&fa);
  return pid;
}
#endif

}  // namespace htest

#endif
