// SPDX-License-Identifier: Apache-2.0
// QlgParm and QlgParmList: each kind rendered alone with its default
// conversion, and the list's ownership of its strings, order and deep copy.
#include <ardel/QlgParm.h>

#include <cstring>
#include <string>

#include "msg/QlgParmList.h"
#include "support/TestSupport.h"

namespace {

QlgParm parm(int kind, long v = 0, const char* s = nullptr) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = kind;
  if (kind == QLG_PARM_INT) p.value.i = static_cast<int>(v);
  if (kind == QLG_PARM_STRING) p.value.s = const_cast<char*>(s);
  return p;
}

int add(QlgParmList* l, QlgParm p) { return QlgParmList_add(l, &p); }

std::string render(const QlgParm& p) {
  char* s = QlgParm_toString(&p);
  std::string out = s ? s : "<null>";
  QlgMem_free(s);
  return out;
}

TEST(QlgParm, EachKindUsesItsDefaultConversionAndUnknownKindsGiveNothing) {
  QlgParm p[7];
  for (int k = 0; k < 7; k++) p[k] = parm(QLG_PARM_CHAR + k);  // the kinds in declaration order
  ASSERT_EQ(p[6].kind, QLG_PARM_STRING);
  p[0].value.c = 'q', p[1].value.i = -17, p[2].value.l = 123456789L, p[3].value.f = 0.25f;
  p[4].value.d = -3.5, p[5].value.uc = 'Z', p[6].value.s = const_cast<char*>("100% literal");
  const char* expected[] = {"q", "-17", "123456789", "0.250000", "-3.500000", "Z", "100% literal"};
  for (int k = 0; k < 7; k++) EXPECT_EQ(render(p[k]), expected[k]) << "kind " << p[k].kind;
  for (int kind : {0, 500, 508, static_cast<int>(QLG_PARM_STRING)}) EXPECT_EQ(render(parm(kind)), "") << kind;
  EXPECT_EQ(QlgParm_toString(nullptr), nullptr);
  QlgMem_failAt(1);
  EXPECT_EQ(render(parm(QLG_PARM_INT, 5)), "<null>");
  QlgMem_failAt(0);
}

TEST(QlgParmList, KeepsOrderOwnsCopiesOfStringsAndCopiesDeeply) {
  QlgParmList* list = QlgParmList_create();
  char text[] = "original";
  for (int i = 0; i < 10; i++) ASSERT_TRUE(add(list, parm(QLG_PARM_INT, i)));
  for (const char* s : {static_cast<const char*>(text), static_cast<const char*>(nullptr)})
    ASSERT_TRUE(add(list, parm(QLG_PARM_STRING, 0, s)));
  text[0] = 'X';
  QlgParmList* copy = QlgParmList_copy(list);
  for (QlgParmList* l : {list, copy}) {
    ASSERT_EQ(QlgParmList_count(l), 12);
    for (int i = 0; i < 10; i++) EXPECT_EQ(QlgParmList_get(l, i)->value.i, i);
    EXPECT_STREQ(QlgParmList_get(l, 10)->value.s, "original");
    EXPECT_EQ(QlgParmList_get(l, 11)->value.s, nullptr);
    EXPECT_EQ(QlgParmList_get(l, 12), nullptr);
    EXPECT_EQ(QlgParmList_get(l, -1), nullptr);
  }
  EXPECT_NE(QlgParmList_get(copy, 10)->value.s, QlgParmList_get(list, 10)->value.s);
  EXPECT_FALSE(add(nullptr, parm(QLG_PARM_INT)) || QlgParmList_add(copy, nullptr));
  EXPECT_EQ(QlgParmList_count(nullptr), 0);
  EXPECT_EQ(QlgParmList_get(nullptr, 0), nullptr);
  EXPECT_EQ(QlgParmList_copy(nullptr), nullptr);
  QlgParmList_free(copy);
  QlgParmList_free(nullptr);
  // A failed add (the array's growth, then the string copy) leaves the list
  // as it was; a failed copy or create gives null.
  QlgParmList* small = QlgParmList_create();
  for (int i = 0; i < 4; i++) add(small, parm(QLG_PARM_INT, i));
  for (long i = 1; i <= 2; i++) {
    QlgMem_failAt(i);
    EXPECT_FALSE(add(small, parm(QLG_PARM_STRING, 0, "text")));
    QlgMem_failAt(0);
    EXPECT_EQ(QlgParmList_count(small), 4);
  }
  QlgParmList_free(small);
  ardeltest::sweepAllocations([] {}, [&] {
    QlgParmList* c = QlgParmList_copy(list);
    EXPECT_EQ(c == nullptr, QlgMem_failed() == 1);
    QlgParmList_free(c);
  }, [](long) {});
  QlgMem_failAt(1);
  EXPECT_EQ(QlgParmList_create(), nullptr);
  QlgMem_failAt(0);
  QlgParmList_free(list);
}

}  // namespace
