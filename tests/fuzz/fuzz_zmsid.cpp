// SPDX-License-Identifier: Apache-2.0
// Message-ID recognition over arbitrary text: the record is filled within
// its bounds whatever the input.
#include <string>

#include "msg/CxZMSID.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  CxZMSID id;
  CxZMSID_parse(&id, text.c_str());
  return 0;
}
