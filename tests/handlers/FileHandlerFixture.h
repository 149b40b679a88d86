// SPDX-License-Identifier: Apache-2.0
/*
 * What the tests of both file handler classes share: a started toolkit,
 * handlers built with a bare or head/tail formatter and their properties
 * in order, a lock key of this run alone, and a temporary directory.
 */
#ifndef ARDEL_TEST_FILEHANDLERFIXTURE_H
#define ARDEL_TEST_FILEHANDLERFIXTURE_H

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "handlers/QlgFileHandler.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"

#define EXPECT_HAS(text, needle) EXPECT_NE((text).find(needle), std::string::npos) << (text)

namespace fhtest {

using Props = std::vector<std::pair<std::string, std::string>>;

inline bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

/* One row of a rollover table: properties, the text a file holds before the
   handler starts (or null), the records, then each file by its suffix after
   the base name ("" the active file, "1" the first backup) with its text,
   kAbsent when it must not exist. */
const char* const kAbsent = "(absent)";
struct RollCase {
  Props props;
  const char* existing;
  std::vector<std::string> records;
  std::vector<std::pair<std::string, std::string>> files;
};

/* A lock key of this test run alone, so parallel runs do not contend. */
inline std::string ownKey() { return std::to_string(0x4d500000 + (getpid() & 0xfffff)); }

class FileHandlerFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    QlgClass_registerFormatter("test_fh_bare", nullptr, nullptr, nullptr, nullptr,
                               ardeltest::bareMessage, nullptr, nullptr, nullptr);
    QlgClass_registerFormatter("test_fh_headtail", nullptr, nullptr, nullptr, nullptr,
                               ardeltest::bareMessage, ardeltest::headText, ardeltest::tailText, nullptr);
    ardeltest::registerRecorder();
    static int serial = 0;
    prefix_ = "test.fh" + std::to_string(++serial) + ".";
  }
  void TearDown() override {
    for (auto it = objects_.rbegin(); it != objects_.rend(); ++it) QlgObject_release(*it);
  }

  QlgObject* make(const std::string& name, const char* cls) {
    QlgObject* obj = QlgObject_create((prefix_ + name).c_str(), cls);
    EXPECT_NE(obj, nullptr) << name;
    if (obj) objects_.push_back(obj);
    return obj;
  }
  /* A handler of class cls, named "h<n>", with the run's lock key and then
     the given properties, in order. */
  QlgObject* handler(const Props& props, bool headTail = false, const char* cls = "qlg_filehandler") {
    QlgObject* h = make("h" + std::to_string(objects_.size()), cls);
    QlgHandler_setFormatter(h, make("f" + std::to_string(objects_.size()),
                                    headTail ? "test_fh_headtail" : "test_fh_bare"));
    QlgObject_storeProperty(h, "MPFileSemKey", ownKey().c_str());
    for (const auto& p : props) QlgObject_storeProperty(h, p.first.c_str(), p.second.c_str());
    return h;
  }
  static QlgFileHandlerData* data(QlgObject* h) { return QlgFileHandler_data(h); }
  static std::string path(QlgObject* h) { return data(h)->path ? data(h)->path : "(null)"; }
  static void log(QlgObject* h, const std::vector<std::string>& texts) {
    for (const auto& text : texts) {
      QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, text.c_str(), 0);
      ASSERT_NE(e, nullptr);
      h->cls->slots.handler.publish(h, e);
      QlgEvent_free(e);
    }
  }
  static void close(QlgObject* h) { h->cls->slots.handler.close(h); }

  /* The row's properties after fileName <dir>/<base>.log, with the row's
     existing text written there first. */
  Props rollProps(const RollCase& c, const std::string& base) {
    if (c.existing) dir_.write(base + ".log", c.existing);
    Props props = c.props;
    props.insert(props.begin(), {"fileName", dir_.file(base + ".log")});
    return props;
  }
  void expectFiles(const RollCase& c, const std::string& base) {
    for (const auto& f : c.files) {
      std::string name = dir_.file(base + f.first + ".log");
      EXPECT_EQ(exists(name) ? ardeltest::readFile(name) : kAbsent, f.second) << name;
    }
  }

  ardeltest::TempDir dir_;
  std::string prefix_;
  std::vector<QlgObject*> objects_;
};

}  // namespace fhtest

#endif
