// SPDX-License-Identifier: Apache-2.0
/*
 * CxSharedMem: a block of memory that several processes map under one
 * system-wide name, as an application server publishes its ring.  Here it
 * is a POSIX shared-memory object "/<name>"; the name itself holds no "/".
 *
 * The size of a mapping is what the object holds when it is opened: a
 * caller that keeps a layout inside it must check every offset it takes
 * from the shared bytes against CxSharedMem_size, because another process
 * wrote them.  The word accessors order the plain copies around them:
 * a store publishes the bytes written before it, a load makes the bytes
 * published before the matching store visible.
 */
#ifndef ARDEL_CXSHAREDMEM_H
#define ARDEL_CXSHAREDMEM_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"

ARDEL_BEGIN_C

typedef struct CxSharedMem CxSharedMem;

/* Longest accepted name, in bytes. */
#define CX_SHARED_MEM_NAME_MAX 200

/* Opens the existing object for reading and writing and maps all of it.
   'p' 22 for a bad name, ENOENT when no object has the name, EINVAL when
   it is not a plain memory object or is empty. */
CxStatus CxSharedMem_open(CxSharedMem** out, const char* name);
/* Creates a new object of size bytes (zero-filled) with the permission
   mode, and maps it; 'p' EEXIST when the name is taken. */
CxStatus CxSharedMem_create(CxSharedMem** out, const char* name, size_t size, uint32_t mode);
/* Unmaps and releases the handle; *m becomes null.  'p' 22 for null. */
CxStatus CxSharedMem_close(CxSharedMem** m);
/* Removes the name; mappings already made stay valid. */
CxStatus CxSharedMem_remove(const char* name);
/* Start and size in bytes of the mapping (null and 0 for null). */
unsigned char* CxSharedMem_address(const CxSharedMem* m);
size_t CxSharedMem_size(const CxSharedMem* m);
/* A 32-bit word at a 4-byte aligned address inside a mapping, read with
   acquire and written with release ordering against the other processes. */
uint32_t CxSharedMem_loadWord(const void* at);
void CxSharedMem_storeWord(void* at, uint32_t value);

ARDEL_END_C

#endif
