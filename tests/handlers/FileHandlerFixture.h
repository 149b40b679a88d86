// SPDX-License-Identifier: Apache-2.0
/*
 * What the tests of both file handler classes add to the handler harness:
 * handlers built with a bare or head/tail formatter, a lock key of this run
 * alone and their properties in order, records logged by text, rollover
 * rows, and a temporary directory.
 */
#ifndef ARDEL_TEST_FILEHANDLERFIXTURE_H
#define ARDEL_TEST_FILEHANDLERFIXTURE_H

#include <unistd.h>

#include "handlers/HandlerHarness.h"
#include "handlers/QlgFileHandler.h"

namespace fhtest {

using namespace htest;

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

class FileHandlerFixture : public htest::HandlerTest {
 protected:
  /* A handler of class cls with the run's lock key and then the given
     properties, in order. */
  QlgObject* handler(Props props, bool headTail = false, const char* cls = "qlg_filehandler") {
    props.insert(props.begin(), {"MPFileSemKey", ownKey()});
    return HandlerTest::handler(cls, headTail ? "test_headtail" : "test_bare", props);
  }
  static QlgFileHandlerData* data(QlgObject* h) { return QlgFileHandler_data(h); }
  static std::string path(QlgObject* h) { return data(h)->path ? data(h)->path : "(null)"; }
  static void log(QlgObject* h, const std::vector<std::string>& texts) {
    for (const auto& text : texts) htest::publish(h, 3000, text);
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
};

}  // namespace fhtest

#endif
