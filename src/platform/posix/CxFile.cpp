// SPDX-License-Identifier: Apache-2.0
/*
 * CxFile on POSIX: descriptors, stat, rename and directory chains.
 * Every descriptor is opened close-on-exec so that child processes never
 * inherit the toolkit's files.  Interrupted calls are retried: a signal
 * aimed at the host program must not surface as a failed log write.
 */
#include "platform/CxFile.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include "util/CxHot.h"

namespace {

CxStatus errnoStatus(int e) { return CxStatus_make('p', e); }
CxStatus invalid() { return CxStatus_make('p', EINVAL); }

bool isEmpty(const char* s) { return !s || !*s; }

/* Maps CX_O_* onto the native flags; false for an unknown bit or access mode. */
bool nativeFlags(int flags, int* out) {
  const int known = CX_O_WRONLY | CX_O_RDWR | CX_O_APPEND | CX_O_CREAT | CX_O_TRUNC | CX_O_EXCL;
  if (flags & ~known) return false;
  int n;
  switch (flags & (CX_O_WRONLY | CX_O_RDWR)) {
    case CX_O_RDONLY: n = O_RDONLY; break;
    case CX_O_WRONLY: n = O_WRONLY; break;
    case CX_O_RDWR: n = O_RDWR; break;
    default: return false;
  }
  if (flags & CX_O_APPEND) n |= O_APPEND;
  if (flags & CX_O_CREAT) n |= O_CREAT;
  if (flags & CX_O_TRUNC) n |= O_TRUNC;
  if (flags & CX_O_EXCL) n |= O_EXCL;
  *out = n | O_CLOEXEC;
  return true;
}

bool nativeWhence(int origin, int* out) {
  switch (origin) {
    case CX_SEEK_SET: *out = SEEK_SET; return true;
    case CX_SEEK_CUR: *out = SEEK_CUR; return true;
    case CX_SEEK_END: *out = SEEK_END; return true;
    default: return false;
  }
}

/* stat of a path record as a plain error number: 0, or errno. */
int statRecord(const CxFilePath* path, struct stat* st) {
  if (!path || path->length <= 0) return EINVAL;
  if (stat(path->text, st) == 0) return 0;
  return errno;
}

/* 2 for every way of not finding a path (a file where a directory was
   expected in the middle of it also means the path is missing). */
int missingOr(int e) { return (e == ENOENT || e == ENOTDIR) ? ENOENT : e; }

CxStatus statWithKind(CxFileStat* out, const char* path, int* kind, bool follow) {
  if (!out || !kind || isEmpty(path)) return invalid();
  struct stat st;
  if ((follow ? stat(path, &st) : lstat(path, &st)) != 0) return errnoStatus(errno);
  out->size = (int64_t)st.st_size;
  out->ctime = (int64_t)st.st_ctime;
  out->mtime = (int64_t)st.st_mtime;
  out->atime = (int64_t)st.st_atime;
  if (S_ISREG(st.st_mode)) *kind = CX_KIND_FILE;
  else if (S_ISDIR(st.st_mode)) *kind = CX_KIND_DIRECTORY;
  else if (S_ISLNK(st.st_mode)) *kind = CX_KIND_LINK;
  else *kind = CX_KIND_OTHER;
  return CxStatus_ok();
}

/* The kernel's protected_symlinks rule, applied whatever the kernel is
   set to: a link is followed when the process owns it, when only the
   directory's owner can write the directory, or when the link belongs to
   that owner. */
bool linkMayBeFollowed(const char* path) {
  struct stat link;
  if (lstat(path, &link) != 0 || !S_ISLNK(link.st_mode)) return false;
  if (link.st_uid == geteuid()) return true;
  char dir[PATH_MAX];
  const char* slash = strrchr(path, '/');
  size_t len = !slash ? 0 : slash == path ? 1 : (size_t)(slash - path);
  if (len >= sizeof dir) return false;
  if (len == 0) {
    strcpy(dir, ".");
  } else {
    memcpy(dir, path, len);
    dir[len] = '\0';
  }
  struct stat d;
  if (stat(dir, &d) != 0) return false;
  return !(d.st_mode & (S_IWGRP | S_IWOTH)) || link.st_uid == d.st_uid;
}

int openRetry(const char* path, int native, int mode) {
  int r;
  do {
    r = open(path, native, (mode_t)mode);
  } while (r < 0 && errno == EINTR);
  return r;
}

}  // namespace

extern "C" {

CxStatus CxFile_openMode(int* fd, const char* path, int flags, int mode) {
  if (!fd) return invalid();
  *fd = -1;
  int native;
  if (isEmpty(path) || !nativeFlags(flags, &native)) return invalid();
  int r;
  do {
    r = open(path, native, (mode_t)mode);
  } while (r < 0 && errno == EINTR);
  if (r < 0) return errnoStatus(errno);
  *fd = r;
  return CxStatus_ok();
}

CxStatus CxFile_open(int* fd, const char* path, int flags) {
  return CxFile_openMode(fd, path, flags, CX_FILE_DEFAULT_MODE);
}

CxStatus CxFile_close(int* fd) {
  if (!fd) return invalid();
  int r = close(*fd);
  int e = errno;
  *fd = -1;
  /* On Linux the descriptor is released even when close is interrupted. */
  if (r != 0 && e != EINTR) return errnoStatus(e);
  return CxStatus_ok();
}

CxStatus CxFile_flush(int fd) {
  if (fsync(fd) != 0) return errnoStatus(errno);
  return CxStatus_ok();
}

CxStatus CxFile_read(int fd, void* buf, size_t size, int* count) {
  if (!count) return invalid();
  *count = -1;
  if (!buf || size > INT_MAX) return invalid();
  ssize_t r;
  do {
    r = read(fd, buf, size);
  } while (r < 0 && errno == EINTR);
  if (r < 0) return errnoStatus(errno);
  *count = (int)r;
  return CxStatus_ok();
}

CX_HOT CxStatus CxFile_write(int fd, const void* data, size_t size, int* count) {
  if (!count) return invalid();
  *count = -1;
  if (!data || size > INT_MAX) return invalid();
  /* A record is written whole: short writes are continued, so a record is
     only ever cut by a real failure (a full disk). */
  const char* p = (const char*)data;
  size_t done = 0;
  while (done < size) {
    ssize_t r = write(fd, p + done, size - done);
    if (r < 0) {
      if (errno == EINTR) continue;
      if (done == 0) return errnoStatus(errno);
      break;
    }
    if (r == 0) {
      errno = 0; /* a short count the system gave no reason for */
      break;
    }
    done += (size_t)r;
  }
  *count = (int)done;
  return CxStatus_ok();
}

CxStatus CxFile_seek(int fd, int64_t offset, int origin) {
  int whence;
  if (!nativeWhence(origin, &whence)) return invalid();
  off_t r = lseek(fd, (off_t)offset, whence);
  /* Intended: only a resulting position of 0 counts as success; any other
     position reports the errno of the moment although the move happened. */
  if (r == 0) return CxStatus_ok();
  return errnoStatus(errno);
}

CxStatus CxFile_truncate(int fd) {
  if (lseek(fd, 0, SEEK_SET) != 0) return errnoStatus(errno);
  int r;
  do {
    r = ftruncate(fd, 0);
  } while (r != 0 && errno == EINTR);
  if (r != 0) return errnoStatus(errno);
  struct stat st;
  if (fstat(fd, &st) != 0) return errnoStatus(errno);
  if (st.st_size != 0) return invalid();
  return CxStatus_ok();
}

CxStatus CxFile_stat(int fd, int64_t* size) {
  if (!size) return invalid();
  struct stat st;
  if (fstat(fd, &st) != 0) return errnoStatus(errno);
  *size = (int64_t)st.st_size;
  return CxStatus_ok();
}

CxStatus CxFile_endOffset(int fd, int64_t* size) {
  if (!size) return invalid();
  off_t end = lseek(fd, 0, SEEK_END);
  if (end < 0) return errnoStatus(errno);
  *size = (int64_t)end;
  return CxStatus_ok();
}

CxStatus CxFile_statPath(CxFileStat* out, const char* path) {
  if (!out || isEmpty(path)) return invalid();
  struct stat st;
  if (stat(path, &st) != 0) return errnoStatus(errno);
  out->size = (int64_t)st.st_size;
  out->ctime = (int64_t)st.st_ctime;
  out->mtime = (int64_t)st.st_mtime;
  out->atime = (int64_t)st.st_atime;
  return CxStatus_ok();
}

CxStatus CxFile_delete(const char* path) {
  if (isEmpty(path)) return invalid();
  if (unlink(path) != 0) return errnoStatus(errno);
  return CxStatus_ok();
}

CxStatus CxFile_rename(const char* from, const char* to) {
  if (isEmpty(from) || isEmpty(to)) return invalid();
  if (rename(from, to) != 0) return errnoStatus(errno);
  return CxStatus_ok();
}

int CxFile_exists(const CxFilePath* path) {
  struct stat st;
  return missingOr(statRecord(path, &st));
}

int CxFile_isDirectory(const CxFilePath* path) {
  struct stat st;
  int e = statRecord(path, &st);
  if (e != 0) return missingOr(e);
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

int CxFile_makeDirs(const CxFilePath* path, int mode) {
  struct stat st;
  int e = statRecord(path, &st);
  if (e == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
  if (e == EINVAL) return EINVAL;
  /* The parent first; a leading "/" has the root as parent, which exists. */
  if (path->lastSep > 0) {
    CxFilePath parent;
    memcpy(parent.text, path->text, (size_t)path->lastSep);
    parent.text[path->lastSep] = '\0';
    parent.length = path->lastSep;
    const char* sep = strrchr(parent.text, '/');
    parent.lastSep = sep ? (int32_t)(sep - parent.text) : -1;
    int pe = CxFile_makeDirs(&parent, mode);
    if (pe != 0) return pe;
  }
  /* Intended: the mode is not applied; directories get the default permission. */
  if (mkdir(path->text, 0777) == 0 || errno == EEXIST) return 0;
  return errno;
}

CxStatus CxFile_lstatPath(CxFileStat* out, const char* path, int* kind) {
  return statWithKind(out, path, kind, false);
}

CxStatus CxFile_statKind(CxFileStat* out, const char* path, int* kind) {
  return statWithKind(out, path, kind, true);
}

CxStatus CxFile_openIn(int* fd, const char* dir, const char* name, int flags, int mode) {
  if (!fd) return invalid();
  *fd = -1;
  int native;
  if (isEmpty(dir) || isEmpty(name) || !nativeFlags(flags, &native)) return invalid();
  if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strpbrk(name, "/\\")) return invalid();
  /* A trailing separator would make the kernel resolve a link at the last
     component in spite of O_NOFOLLOW, so it is cut off first. */
  char d[CX_PATH_MAX];
  size_t len = strlen(dir);
  if (len >= sizeof d) return CxStatus_make('p', ENAMETOOLONG);
  memcpy(d, dir, len + 1);
  while (len > 1 && d[len - 1] == '/') d[--len] = '\0';
  int dfd;
  do {
    dfd = open(d, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  } while (dfd < 0 && errno == EINTR);
  if (dfd < 0) return errnoStatus(errno);
  int r;
  do {
    r = openat(dfd, name, native | O_NOFOLLOW, (mode_t)mode);
  } while (r < 0 && errno == EINTR);
  int e = errno;
  close(dfd);
  if (r < 0) return errnoStatus(e);
  *fd = r;
  return CxStatus_ok();
}

CxStatus CxFile_openShared(int* fd, const char* path, int flags, int mode) {
  if (!fd) return invalid();
  *fd = -1;
  int native;
  if (isEmpty(path) || !nativeFlags(flags, &native)) return invalid();
  /* O_NONBLOCK: opening a FIFO must not wait for a reader; it is cleared
     again once the file is known to be regular. */
  native |= O_NONBLOCK | O_NOCTTY;
  int r = openRetry(path, native | O_NOFOLLOW, mode);
  if (r < 0 && errno == ELOOP && linkMayBeFollowed(path)) r = openRetry(path, native, mode);
  if (r < 0) return errnoStatus(errno);
  struct stat st;
  int e = 0;
  if (fstat(r, &st) != 0) {
    e = errno;
  } else if (!S_ISREG(st.st_mode) && !S_ISCHR(st.st_mode)) {
    e = ENXIO;
  } else {
    int fl = fcntl(r, F_GETFL);
    if (fl < 0 || fcntl(r, F_SETFL, fl & ~O_NONBLOCK) != 0) e = errno;
  }
  if (e != 0) {
    close(r);
    return errnoStatus(e);
  }
  *fd = r;
  return CxStatus_ok();
}

CxStatus CxFile_id(int fd, CxFileId* out) {
  if (!out) return invalid();
  struct stat st;
  if (fstat(fd, &st) != 0) return errnoStatus(errno);
  out->device = (uint64_t)st.st_dev;
  out->inode = (uint64_t)st.st_ino;
  return CxStatus_ok();
}

CxStatus CxFile_pathId(const char* path, CxFileId* out) {
  if (!out || isEmpty(path)) return invalid();
  struct stat st;
  if (stat(path, &st) != 0) return errnoStatus(errno);
  out->device = (uint64_t)st.st_dev;
  out->inode = (uint64_t)st.st_ino;
  return CxStatus_ok();
}

}  // extern "C"
