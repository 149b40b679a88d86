// SPDX-License-Identifier: Apache-2.0
// qlg_multiproc_filehandler takes the size from the note the last lock
// holder left, but only the file itself starts a rollover, and what another
// program does to the file (truncation, appending) counts within a second.
#if !defined(_WIN32)
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "handlers/FileHandlerFixture.h"

namespace {

using ardeltest::readFile;
using fhtest::exists;

using MPSizeNoteTest = fhtest::FileHandlerFixture;

// The note is shared by every handler of the lock key: each case runs alone.
TEST_F(MPSizeNoteTest, WhatAnotherProgramDoesToTheFileCountsOverTheStaleNote) {
  auto mp = [&](const char* name) {
    return handler({{"fileName", dir_.file(name)}, {"maxFiles", "2"}, {"maxFileBytes", "9"}}, false,
                   "qlg_multiproc_filehandler");
  };
  QlgObject* t = mp("t.log");
  log(t, {"r1", "r2"});  // 6 bytes noted
  ASSERT_EQ(truncate(dir_.file("t.log").c_str(), 0), 0);
  log(t, {"r3", "r4"});  // the note says 6 + 3 = 9: due, but the file holds 3
  EXPECT_EQ(readFile(dir_.file("t.log")), "r3\nr4\n");
  EXPECT_FALSE(exists(dir_.file("t1.log"))) << "rolled over on the note alone";
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

}  // namespace
#endif
