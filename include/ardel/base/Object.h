/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Object: the root of the base library's classes; what a trace statement
 * prints of an object is its toString().  Defined inline so that programs
 * deriving from it against the shared library get its virtual table in
 * their own objects (nothing in the library itself references Object).
 */
#ifndef BASE_OBJECT_H
#define BASE_OBJECT_H

#include <ardel/base/String.h>
#include <ardel/base/export.h>

class BASE_API Object {
 public:
  virtual ~Object() {}
  /* The object's text form; the base form is the text "Object". */
  virtual String toString() const { return String("Object"); }
};

#endif
