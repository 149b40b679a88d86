// SPDX-License-Identifier: Apache-2.0
// The reference generated from the class table: docs/classes.md is the
// table's current output.
#include "Reference.h"
#include "support/TestSupport.h"

using namespace ardeltest;

TEST(ClassReference, CommittedFileIsTheGeneratedOne) {
  char* text = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  ASSERT_NE(out, nullptr);
  ClassTable_printReference(out);
  fclose(out);
  std::string generated(text, size);
  free(text);
  EXPECT_EQ(readFile(ARDEL_SOURCE_DIR "/docs/classes.md"), generated)
      << "regenerate docs/classes.md with `ardel-config reference`";
}
