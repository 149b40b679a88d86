// SPDX-License-Identifier: Apache-2.0
/*
 * The toolkit's process-wide registries, for the core modules that keep
 * them.  Everything here is read and written under the toolkit lock.
 */
#ifndef ARDEL_QLGTOOLKITINT_H
#define ARDEL_QLGTOOLKITINT_H

#include <ardel/QlgToolkit.h>
#include "core/QlgObjectContainers.h"
#include "util/QlgStringGroup.h"

ARDEL_BEGIN_C

typedef struct QlgRegistries {
  QlgStringToObjClassMap* classes;   /* null until the built-in classes are registered */
  QlgStringGroup* classNames[4];     /* per kind, in registration order (kind - 101) */
  QlgStringToObjMap* objects;        /* the object registry */
} QlgRegistries;

QlgRegistries* QlgToolkit_registries(void);
/* The object registry, created on first use; null when out of memory. */
QlgStringToObjMap* QlgToolkit_objectRegistry(void);

/* 1 while some thread waits for the toolkit lock. */
int QlgToolkit_contended(void);

/* Shutdown: tears down every registered object, whatever references are
   still held outside the registry. */
void QlgObject_tearDownAll(void);

ARDEL_END_C

#endif
