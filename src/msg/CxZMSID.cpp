// SPDX-License-Identifier: Apache-2.0
/*
 * CxZMSID: ZMS message-ID shapes (see CxZMSID.h).  Only the first ten
 * characters of a text are ever examined.
 */
#include "msg/CxZMSID.h"

#include <cstddef>
#include <cstring>

static_assert(offsetof(CxZMSID, severity) == offsetof(CxZMSID, idText) + sizeof(((CxZMSID*)nullptr)->idText),
              "the ID text's terminator must be able to land on the severity field");

namespace {

constexpr int kScan = 10;

struct Classes {
  bool letter[kScan];
  bool digit[kScan];
  bool severity[kScan];
};

void classify(const char* text, Classes* c) {
  std::memset(c, 0, sizeof(*c));
  for (int i = 0; i < kScan && text[i]; ++i) {
    char ch = text[i];
    c->letter[i] = (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
    c->digit[i] = ch >= '0' && ch <= '9';
    c->severity[i] = ch == 'E' || ch == 'I' || ch == 'W';
  }
}

bool digits(const Classes& c, int from, int to) {
  for (int i = from; i <= to; ++i)
    if (!c.digit[i]) return false;
  return true;
}

struct Shape {
  const char* name;
  int letters;
  int digits;
};

/* Which shape the text begins with, tried in the documented order. */
const Shape* match(const Classes& c) {
  static const Shape k331 = {"ORX3.3.1", 3, 3}, k341 = {"ORX3.4.1", 3, 4}, k351 = {"ORX3.5.1", 3, 5},
                     k361 = {"ORX3.6.1", 3, 6}, k431 = {"ORX4.3.1", 4, 3}, k441 = {"ORX4.4.1", 4, 4},
                     k451 = {"ORX4.5.1", 4, 5}, k521 = {"ORX5.2.1", 5, 2}, k531 = {"ORX5.3.1", 5, 3},
                     k541 = {"ORX5.4.1", 5, 4}, k631 = {"ORX6.3.1", 6, 3};
  int letters = 0;
  while (letters < 6 && c.letter[letters]) ++letters;
  switch (letters) {
    case 3:
      if (!digits(c, 3, 5)) return nullptr;
      if (c.digit[6] && c.severity[7]) return &k341;
      if (c.severity[6]) return &k331;
      if (digits(c, 6, 7) && c.severity[8]) return &k351;
      if (digits(c, 6, 8) && c.severity[9]) return &k361;
      return nullptr;
    case 4:
      if (!digits(c, 4, 6)) return nullptr;
      if (c.digit[7] && c.severity[8]) return &k441;
      if (c.severity[7]) return &k431;
      if (digits(c, 7, 8) && c.severity[9]) return &k451;
      return nullptr;
    case 5:
      if (!digits(c, 5, 6)) return nullptr;
      if (!c.digit[7] && c.severity[7]) return &k521;
      if (digits(c, 7, 8) && c.severity[9]) return &k541;
      /* Only the severity is tested here, as the shape order has it. */
      if (c.severity[8]) return &k531;
      return nullptr;
    case 6:
      if (digits(c, 6, 8) && c.severity[9]) return &k631;
      return nullptr;
    default:
      return nullptr;
  }
}

}  // namespace

extern "C" CxZMSID* CxZMSID_parse(CxZMSID* id, const char* text) {
  if (!id) return nullptr;
  std::memset(id, 0, sizeof(*id));
  id->shapeName = "";
  if (!text) return id;
  Classes c;
  classify(text, &c);
  const Shape* s = match(c);
  if (!s) return id;
  int len = s->letters + s->digits + 1;
  id->shapeName = s->name;
  id->shapeNumber = static_cast<uint32_t>(100 * s->letters + 10 * s->digits + 1);
  id->length = len;
  id->severity = text[len - 1];
  /* The ID and its terminator go into the bytes from idText onwards, which
     run on into severity: a 10-character ID's terminator overwrites the
     severity letter stored just above.  Intended. */
  unsigned char* region = reinterpret_cast<unsigned char*>(id) + offsetof(CxZMSID, idText);
  std::memcpy(region, text, static_cast<size_t>(len));
  region[len] = '\0';
  return id;
}
