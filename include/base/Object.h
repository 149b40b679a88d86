/*
 * Object: the root of the base library's classes; what a trace statement
 * prints of an object is its toString().
 */
#ifndef BASE_OBJECT_H
#define BASE_OBJECT_H

#include <base/String.h>
#include <base/export.h>

class BASE_API Object {
 public:
  virtual ~Object();
  /* The object's text form; the base form is the text "Object". */
  virtual String toString() const;
};

#endif
