// SPDX-License-Identifier: Apache-2.0
// Formats of arbitrary bytes with typed parameters drawn from the input:
// the engine must produce text or reject the format, never crash or
// overrun.  The first byte chooses how many parameters follow the format.
#include <cstring>
#include <string>

#include <ardel/QlgMem.h>
#include "msg/QlgParmList.h"
#include "msg/QlgPrintf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  int count = data[0] % 12;
  const uint8_t* end = data + size;
  const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(data + 1, 0, size - 1));
  const char* first = reinterpret_cast<const char*>(data + 1);
  std::string format(first, reinterpret_cast<const char*>(nul ? nul : end));
  const uint8_t* p = nul ? nul + 1 : end;
  static const char* kStrings[] = {"", "x", "hello world", "a much longer string of text"};
  QlgParmList* list = QlgParmList_create();
  for (int i = 0; i < count && list; i++) {
    uint8_t b = p < end ? *p++ : 0;
    QlgParm parm = {};
    parm.kind = 501 + b % 8; /* 508 is a kind outside the range */
    long v = 0;
    if (end - p >= 8) std::memcpy(&v, p, 8), p += 8;
    switch (parm.kind) {
      case 501: parm.value.c = static_cast<char>(v); break;
      case 502: parm.value.i = static_cast<int>(v); break;
      case 503: parm.value.l = v; break;
      case 504: { double d; std::memcpy(&d, &v, sizeof d); parm.value.f = static_cast<float>(d); break; }
      case 505: std::memcpy(&parm.value.d, &v, sizeof(double)); break;
      case 506: parm.value.uc = static_cast<unsigned char>(v); break;
      case 507: parm.value.s = const_cast<char*>(kStrings[v & 3]); break;
      default: parm.value.l = v; break;
    }
    QlgParmList_add(list, &parm);
  }
  char* out = QlgPrintf_formatParms(format.c_str(), list);
  if (out) (void)std::strlen(out);
  QlgMem_free(out);
  QlgParmList_free(list);
  return 0;
}
