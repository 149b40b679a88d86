/*
 * Object: the base form of the text conversion.
 */
#include <base/Object.h>

Object::~Object() {}

String Object::toString() const { return String("Object"); }
