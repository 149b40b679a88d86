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
using fhtest::Props;

using MPSizeNoteTest = fhtest::FileHandlerFixture;

TEST_F(MPSizeNoteTest, WhatAnotherProgramDoesToTheFileCountsOverTheStaleNote) {
  Props rolling = {{"maxFiles", "2"}, {"maxFileBytes", "9"}};
  QlgObject* t = handler({{"fileName", dir_.file("t.log")}, rolling[0], rolling[1]}, false, "qlg_multiproc_filehandler");
  QlgObject* g = handler({{"fileName", dir_.file("g.log")}, rolling[0], rolling[1]}, false, "qlg_multiproc_filehandler");
  log(t, {"r1", "r2"});  // 6 bytes noted
  log(g, {"r1"});
  ASSERT_EQ(truncate(dir_.file("t.log").c_str(), 0), 0);
  log(t, {"r3"});
  log(t, {"r4"});  // the note says 6 + 3 = 9: due, but the file holds 3
  EXPECT_EQ(readFile(dir_.file("t.log")), "r3\nr4\n");
  EXPECT_FALSE(exists(dir_.file("t1.log"))) << "rolled over on the note alone";
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
