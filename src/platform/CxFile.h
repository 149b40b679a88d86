// SPDX-License-Identifier: Apache-2.0
/*
 * CxFile: the toolkit's thin layer over file descriptors and file-system
 * calls.  A file is an int descriptor held by the caller, -1 when closed.
 * Every operation reports its outcome as a CxStatus ('p' with an errno
 * value, 22 for a null or empty argument) and never logs: the caller
 * decides what a failure means.  The existence and directory operations
 * return plain error numbers instead (0 success, 2 missing, 20 not a
 * directory, 22 empty path).
 *
 * Paths are used as given: "/" is both the root and the separator.
 * Descriptors are never inherited by child processes.
 */
#ifndef ARDEL_CXFILE_H
#define ARDEL_CXFILE_H

#include <stddef.h>
#include <stdint.h>
#include <ardel/export.h>
#include "platform/CxStatus.h"
#include "platform/CxFilePath.h"

ARDEL_BEGIN_C

/* Open flags.  Callers combine these instead of the platform's O_* values,
   which differ between platforms; any other bit makes CxFile_open fail
   with 'p' 22. */
#define CX_O_RDONLY 0x0000
#define CX_O_WRONLY 0x0001
#define CX_O_RDWR   0x0002
#define CX_O_APPEND 0x0008
#define CX_O_CREAT  0x0100
#define CX_O_TRUNC  0x0200
#define CX_O_EXCL   0x0400

/* Seek origins. */
#define CX_SEEK_SET 0
#define CX_SEEK_CUR 1
#define CX_SEEK_END 2

/* Permission of files created by the three-argument CxFile_open. */
#define CX_FILE_DEFAULT_MODE 0600

typedef struct CxFileStat {
  int64_t size;
  int64_t ctime; /* seconds since 1970; status-change time on POSIX */
  int64_t mtime; /* last modification */
  int64_t atime; /* last access */
} CxFileStat;

/* Opens path with CX_O_* flags; a created file gets permission 0600
   (CxFile_openMode: the given mode), both narrowed by the umask.
   On failure *fd is -1. */
CxStatus CxFile_open(int* fd, const char* path, int flags);
CxStatus CxFile_openMode(int* fd, const char* path, int flags, int mode);
/* Closes *fd and sets it to -1 in every case, failure included. */
CxStatus CxFile_close(int* fd);
/* Forces written data to the device ('p' 9 for a descriptor that is not open). */
CxStatus CxFile_flush(int fd);
/* Reads up to size bytes; *count receives the bytes read, -1 on failure. */
CxStatus CxFile_read(int fd, void* buf, size_t size, int* count);
/* Writes size bytes; *count receives the bytes written, -1 on failure.  A
   short count leaves the cause in errno, 0 when the system gave none. */
CxStatus CxFile_write(int fd, const void* data, size_t size, int* count);
/* Moves the file position.  Success only when the resulting position is 0:
   a rewind is the one use callers check, and any other resulting position
   is reported as 'p' with the current errno even though the position
   moved.  This rule is intended. */
CxStatus CxFile_seek(int fd, int64_t offset, int origin);
/* Empties the file: rewind, cut to 0 bytes, and check that the size is
   then 0 ('p' 22 otherwise). */
CxStatus CxFile_truncate(int fd);
/* Size in bytes of the open file. */
CxStatus CxFile_stat(int fd, int64_t* size);
/* Size of the open file read by moving its position to the end, without
   asking for its attributes; for files opened to append, where the
   position does not matter. */
CxStatus CxFile_endOffset(int fd, int64_t* size);
/* Size and the three times of a named file ('p' 22 for an empty path). */
CxStatus CxFile_statPath(CxFileStat* out, const char* path);
CxStatus CxFile_delete(const char* path);
/* Renames from to to; an existing target is replaced. */
CxStatus CxFile_rename(const char* from, const char* to);

/* 0 when the path exists, 2 when not, 22 for a null or empty record;
   another errno when the answer cannot be had (for example 13). */
int CxFile_exists(const CxFilePath* path);
/* 0 for a directory, 20 for another existing object, 2 when missing,
   22 for a null or empty record. */
int CxFile_isDirectory(const CxFilePath* path);
/* Creates the directory and every missing parent.  0 when it exists
   afterwards, 20 when the path (or a parent) is not a directory, else the
   errno of the failing mkdir.  The mode is accepted but, as intended, not
   applied: directories get the default permission (0777 less the umask). */
int CxFile_makeDirs(const CxFilePath* path, int mode);

/* What CxFile_lstatPath found at a path. */
#define CX_KIND_FILE 1
#define CX_KIND_DIRECTORY 2
#define CX_KIND_LINK 3
#define CX_KIND_OTHER 4

/* Like CxFile_statPath, but a symbolic link at the path is described
   itself and never followed; *kind receives one of CX_KIND_*.  Code that
   walks or deletes inside a directory others can write to uses this, so
   that a planted link never leads it elsewhere. */
CxStatus CxFile_lstatPath(CxFileStat* out, const char* path, int* kind);
/* CxFile_statPath with the kind of what the path leads to (links followed,
   so never CX_KIND_LINK): lets a caller refuse a FIFO or a device before
   an open could block on it. */
CxStatus CxFile_statKind(CxFileStat* out, const char* path, int* kind);
/* Opens the entry name inside directory dir with CX_O_* flags and mode,
   following a symbolic link at neither: a link planted at dir's last
   component or at name fails with 'p' 40 (ELOOP on POSIX), and a name
   that is empty, "." or "..", or holds a separator fails with 'p' 22. */
CxStatus CxFile_openIn(int* fd, const char* dir, const char* name, int flags, int mode);

/* Opens a file the library writes in a directory other users may write
   to (log files, backups), with CX_O_* flags and mode (narrowed by the
   umask, so never wider).  It never blocks: anything but a regular file
   or a character device (a FIFO, a socket, a block device) is refused with
   'p' 6 (ENXIO on POSIX).  A symbolic link at the last component is
   followed only when it belongs to the process's user, or to the
   directory's owner when others can write the directory; any other link
   is refused with 'p' 40 (ELOOP), so a planted link never redirects the
   write. */
CxStatus CxFile_openShared(int* fd, const char* path, int flags, int mode);

/* Which file a descriptor or a path designates: equal records mean the
   same file. */
typedef struct CxFileId {
  uint64_t device;
  uint64_t inode;
} CxFileId;
CxStatus CxFile_id(int fd, CxFileId* out);
/* Links followed; 'p' 2 when the path names nothing. */
CxStatus CxFile_pathId(const char* path, CxFileId* out);

ARDEL_END_C

#endif
