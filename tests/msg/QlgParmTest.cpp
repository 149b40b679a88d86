/*
 * QlgParm and QlgParmList: each kind rendered alone with its default
 * conversion, and the parameter list's ownership of its strings, order,
 * deep copy and behaviour when memory runs out.
 */
#include <gtest/gtest.h>

#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include "msg/QlgParmList.h"
#include "util/QlgMemTest.h"

#include <cstring>
#include <string>

namespace {

QlgParm parm(int kind) {
  QlgParm p;
  std::memset(&p, 0, sizeof p);
  p.kind = kind;
  return p;
}
QlgParm str(const char* v) {
  QlgParm p = parm(QLG_PARM_STRING);
  p.value.s = const_cast<char*>(v);
  return p;
}
QlgParm num(int v) {
  QlgParm p = parm(QLG_PARM_INT);
  p.value.i = v;
  return p;
}

std::string render(const QlgParm& p) {
  char* s = QlgParm_toString(&p);
  std::string out = s ? std::string(s) : std::string("<null>");
  QlgMem_free(s);
  return out;
}

}  // namespace

TEST(QlgParmToString, EachKindUsesItsDefaultConversion) {
  QlgParm p[7];
  for (int k = 0; k < 7; k++) p[k] = parm(QLG_PARM_CHAR + k);  // the kinds in declaration order
  ASSERT_EQ(p[6].kind, QLG_PARM_STRING);
  p[0].value.c = 'q';
  p[1].value.i = -17;
  p[2].value.l = 123456789L;
  p[3].value.f = 0.25f;
  p[4].value.d = -3.5;
  p[5].value.uc = 'Z';
  p[6].value.s = const_cast<char*>("100% literal");
  const char* expected[] = {"q", "-17", "123456789", "0.250000", "-3.500000", "Z", "100% literal"};
  for (int k = 0; k < 7; k++) EXPECT_EQ(render(p[k]), expected[k]) << "kind " << p[k].kind;
}

TEST(QlgParmToString, UnknownKindOrMissingTextGivesAnEmptyString) {
  EXPECT_EQ(render(parm(0)), "");
  EXPECT_EQ(render(parm(500)), "");
  EXPECT_EQ(render(parm(508)), "");
  EXPECT_EQ(render(parm(QLG_PARM_STRING)), "");
  EXPECT_EQ(QlgParm_toString(nullptr), nullptr);
}

TEST(QlgParmToString, OutOfMemoryGivesNull) {
  QlgParm i = num(5);
  QlgMem_failAt(1);
  char* s = QlgParm_toString(&i);
  EXPECT_EQ(QlgMem_failed(), 1);
  QlgMem_failAt(0);
  EXPECT_EQ(s, nullptr);
}

TEST(QlgParmList, KeepsOrderAndOwnsCopiesOfStrings) {
  QlgParmList* list = QlgParmList_create();
  ASSERT_NE(list, nullptr);
  char text[] = "original";
  for (int i = 0; i < 10; i++) {
    QlgParm n = num(i);
    ASSERT_TRUE(QlgParmList_add(list, &n));
  }
  QlgParm s = str(text);
  ASSERT_TRUE(QlgParmList_add(list, &s));
  text[0] = 'X';
  EXPECT_EQ(QlgParmList_count(list), 11);
  for (int i = 0; i < 10; i++) EXPECT_EQ(QlgParmList_get(list, i)->value.i, i);
  const QlgParm* held = QlgParmList_get(list, 10);
  ASSERT_NE(held, nullptr);
  EXPECT_NE(held->value.s, text);
  EXPECT_STREQ(held->value.s, "original");
  EXPECT_EQ(QlgParmList_get(list, 11), nullptr);
  EXPECT_EQ(QlgParmList_get(list, -1), nullptr);
  QlgParmList_free(list);
}

TEST(QlgParmList, CopyIsDeepAndKeepsANullString) {
  QlgParmList* list = QlgParmList_create();
  const QlgParm items[] = {str("text"), str(nullptr)};
  for (const QlgParm& p : items) ASSERT_TRUE(QlgParmList_add(list, &p));
  QlgParmList* copy = QlgParmList_copy(list);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(QlgParmList_count(copy), 2);
  EXPECT_NE(QlgParmList_get(copy, 0)->value.s, QlgParmList_get(list, 0)->value.s);
  EXPECT_STREQ(QlgParmList_get(copy, 0)->value.s, "text");
  EXPECT_EQ(QlgParmList_get(copy, 1)->value.s, nullptr);
  QlgParmList_free(list);
  QlgParmList_free(copy);
}

TEST(QlgParmList, NullArgumentsAreTolerated) {
  QlgParm n = num(0);
  EXPECT_FALSE(QlgParmList_add(nullptr, &n));
  QlgParmList* list = QlgParmList_create();
  EXPECT_FALSE(QlgParmList_add(list, nullptr));
  EXPECT_EQ(QlgParmList_count(list), 0);
  QlgParmList_free(list);
  EXPECT_EQ(QlgParmList_count(nullptr), 0);
  EXPECT_EQ(QlgParmList_get(nullptr, 0), nullptr);
  EXPECT_EQ(QlgParmList_copy(nullptr), nullptr);
  QlgParmList_free(nullptr);
}

TEST(QlgParmList, FailedAllocationsLeaveTheListUnchanged) {
  const QlgParm s = str("text"), n = num(0);
  QlgParmList* list = QlgParmList_create();
  for (int i = 0; i < 4; i++) ASSERT_TRUE(QlgParmList_add(list, &n));
  for (long i = 1; i <= 2; i++) {  // the array's growth, then the string copy
    QlgMem_failAt(i);
    EXPECT_FALSE(QlgParmList_add(list, &s));
    EXPECT_EQ(QlgMem_failed(), 1);
    QlgMem_failAt(0);
    EXPECT_EQ(QlgParmList_count(list), 4);
  }
  ASSERT_TRUE(QlgParmList_add(list, &s));
  QlgMem_failAt(0);
  QlgParmList_free(QlgParmList_copy(list));
  long attempts = QlgMem_allocCount();
  for (long i = 1; i <= attempts; i++) {
    QlgMem_failAt(i);
    EXPECT_EQ(QlgParmList_copy(list), nullptr);
    QlgMem_failAt(0);
  }
  QlgMem_failAt(1);
  EXPECT_EQ(QlgParmList_create(), nullptr);
  QlgMem_failAt(0);
  QlgParmList_free(list);
}
