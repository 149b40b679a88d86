// SPDX-License-Identifier: Apache-2.0
// The class table against the toolkit it describes and the reference
// generated from it: every class the toolkit registers is in the table
// with its kind and in its order, and docs/classes.md is the table's
// current output.
#include <ardel/QlgObject.h>

#include "ClassTable.h"
#include "Reference.h"
#include "core/QlgToolkitInt.h"
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

TEST(ClassTable, RegisteredClassesAppearWithTheirKindInRegistrationOrder) {
  inChild([] {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    size_t count = 0;
    const ClassInfo* classes = ClassTable_classes(&count);
    for (int kind = 101; kind <= 104; ++kind) {
      std::vector<std::string> registered, described;
      QlgStringGroup* names = QlgToolkit_registries()->classNames[kind - 101];
      for (QlgStringGroupEntry* e = QlgStringGroup_first(names); e; e = QlgStringGroup_next(e)) {
        char* name = QlgStringGroup_entryKey(e);
        registered.push_back(name);
        QlgMem_free(name);
      }
      // Classes still being built are in the table before the toolkit has them.
      for (size_t i = 0; i < count; ++i)
        if (classes[i].kind == kind && QlgClass_find(classes[i].name))
          described.push_back(classes[i].name);
      EXPECT_EQ(registered, described) << "kind " << kind;
    }
  });
}
