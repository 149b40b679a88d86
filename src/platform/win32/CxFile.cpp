// SPDX-License-Identifier: Apache-2.0
/*
 * CxFile on Windows: the runtime library's descriptors over kernel handles
 * opened in binary mode, never inherited and shared for deleting (see
 * cxwin::openDescriptor), and the kernel's file calls for delete,
 * rename, flush and attributes.  Paths that begin with "/" are anchored
 * at the system drive and every "/" becomes "\" before the system sees it.
 */
#include "platform/CxFile.h"
#include "platform/win32/CxWin32.h"
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <direct.h>

namespace {

CxStatus invalid() { return CxStatus_make('p', EINVAL); }
bool isEmpty(const char* s) { return !s || !*s; }

bool nativeFlags(int flags, int* out) {
  const int known = CX_O_WRONLY | CX_O_RDWR | CX_O_APPEND | CX_O_CREAT | CX_O_TRUNC | CX_O_EXCL;
  if (flags & ~known) return false;
  int n;
  switch (flags & (CX_O_WRONLY | CX_O_RDWR)) {
    case CX_O_RDONLY: n = _O_RDONLY; break;
    case CX_O_WRONLY: n = _O_WRONLY; break;
    case CX_O_RDWR: n = _O_RDWR; break;
    default: return false;
  }
  if (flags & CX_O_APPEND) n |= _O_APPEND;
  if (flags & CX_O_CREAT) n |= _O_CREAT;
  if (flags & CX_O_TRUNC) n |= _O_TRUNC;
  if (flags & CX_O_EXCL) n |= _O_EXCL;
  *out = n;
  return true;
}

/* Only the owner-write bit has a meaning for the runtime: without it the
   file is created read-only. */
int nativeMode(int mode) { return _S_IREAD | ((mode & 0200) ? _S_IWRITE : 0); }

/* Attributes of a path record: 0, 2 when missing, or 22. */
int attributesOf(const CxFilePath* path, DWORD* attrs) {
  if (!path || path->length <= 0) return EINVAL;
  char native[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(path->text, native, sizeof native)) return EINVAL;
  DWORD a = GetFileAttributesA(native);
  if (a == INVALID_FILE_ATTRIBUTES) {
    DWORD e = GetLastError();
    return (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND || e == ERROR_INVALID_NAME) ? ENOENT : EACCES;
  }
  *attrs = a;
  return 0;
}

void fillStat(CxFileStat* out, const struct _stat64& st) {
  out->size = (int64_t)st.st_size;
  out->ctime = (int64_t)st.st_ctime;
  out->mtime = (int64_t)st.st_mtime;
  out->atime = (int64_t)st.st_atime;
}

CxStatus statWithKind(CxFileStat* out, const char* path, int* kind, bool follow) {
  if (!out || !kind || isEmpty(path)) return invalid();
  char native[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(path, native, sizeof native)) return invalid();
  DWORD a = GetFileAttributesA(native);
  if (!follow && a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_REPARSE_POINT)) {
    memset(out, 0, sizeof *out);
    *kind = CX_KIND_LINK;
    return CxStatus_ok();
  }
  struct _stat64 st;
  if (_stat64(native, &st) != 0) return CxStatus_make('p', errno);
  fillStat(out, st);
  if (st.st_mode & _S_IFREG) *kind = CX_KIND_FILE;
  else if (st.st_mode & _S_IFDIR) *kind = CX_KIND_DIRECTORY;
  else *kind = CX_KIND_OTHER;
  return CxStatus_ok();
}

}  // namespace

extern "C" {

CxStatus CxFile_openMode(int* fd, const char* path, int flags, int mode) {
  if (!fd) return invalid();
  *fd = -1;
  int native;
  char p[CX_PATH_MAX + 8];
  if (isEmpty(path) || !nativeFlags(flags, &native) || !cxwin::anchorPath(path, p, sizeof p)) return invalid();
  int e = cxwin::openDescriptor(p, native, nativeMode(mode), fd);
  return e == 0 ? CxStatus_ok() : CxStatus_make('p', e);
}

CxStatus CxFile_open(int* fd, const char* path, int flags) {
  return CxFile_openMode(fd, path, flags, CX_FILE_DEFAULT_MODE);
}

CxStatus CxFile_close(int* fd) {
  if (!fd) return invalid();
  int r = *fd >= 0 ? _close(*fd) : -1;
  int e = *fd >= 0 ? errno : EBADF;
  *fd = -1;
  return r == 0 ? CxStatus_ok() : CxStatus_make('p', e);
}

CxStatus CxFile_flush(int fd) {
  intptr_t h = fd >= 0 ? _get_osfhandle(fd) : -1;
  if (h == -1) return CxStatus_make('p', EBADF);
  if (!FlushFileBuffers((HANDLE)h)) return cxwin::lastError();
  return CxStatus_ok();
}

CxStatus CxFile_read(int fd, void* buf, size_t size, int* count) {
  if (!count) return invalid();
  *count = -1;
  if (!buf || size > INT_MAX) return invalid();
  int r = _read(fd, buf, (unsigned)size);
  if (r < 0) return CxStatus_make('p', errno);
  *count = r;
  return CxStatus_ok();
}

CxStatus CxFile_write(int fd, const void* data, size_t size, int* count) {
  if (!count) return invalid();
  *count = -1;
  if (!data || size > INT_MAX) return invalid();
  const char* p = (const char*)data;
  size_t done = 0;
  while (done < size) {
    int r = _write(fd, p + done, (unsigned)(size - done));
    if (r < 0) {
      if (done == 0) return CxStatus_make('p', errno);
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
  if (origin != CX_SEEK_SET && origin != CX_SEEK_CUR && origin != CX_SEEK_END) return invalid();
  int whence = origin == CX_SEEK_SET ? SEEK_SET : origin == CX_SEEK_CUR ? SEEK_CUR : SEEK_END;
  /* Intended: only a resulting position of 0 counts as success. */
  if (_lseeki64(fd, offset, whence) == 0) return CxStatus_ok();
  return CxStatus_make('p', errno);
}

CxStatus CxFile_truncate(int fd) {
  if (_lseeki64(fd, 0, SEEK_SET) != 0) return CxStatus_make('p', errno);
  errno_t e = _chsize_s(fd, 0);
  if (e != 0) return CxStatus_make('p', e);
  struct _stat64 st;
  if (_fstat64(fd, &st) != 0) return CxStatus_make('p', errno);
  if (st.st_size != 0) return invalid();
  return CxStatus_ok();
}

CxStatus CxFile_stat(int fd, int64_t* size) {
  if (!size) return invalid();
  struct _stat64 st;
  if (_fstat64(fd, &st) != 0) return CxStatus_make('p', errno);
  *size = (int64_t)st.st_size;
  return CxStatus_ok();
}

CxStatus CxFile_endOffset(int fd, int64_t* size) {
  if (!size) return invalid();
  int64_t end = _lseeki64(fd, 0, SEEK_END);
  if (end < 0) return CxStatus_make('p', errno);
  *size = end;
  return CxStatus_ok();
}

CxStatus CxFile_statPath(CxFileStat* out, const char* path) {
  if (!out || isEmpty(path)) return invalid();
  char native[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(path, native, sizeof native)) return invalid();
  struct _stat64 st;
  if (_stat64(native, &st) != 0) return CxStatus_make('p', errno);
  fillStat(out, st);
  return CxStatus_ok();
}

CxStatus CxFile_delete(const char* path) {
  char native[CX_PATH_MAX + 8];
  if (isEmpty(path) || !cxwin::anchorPath(path, native, sizeof native)) return invalid();
  if (!DeleteFileA(native)) return cxwin::lastError();
  return CxStatus_ok();
}

CxStatus CxFile_rename(const char* from, const char* to) {
  char f[CX_PATH_MAX + 8], t[CX_PATH_MAX + 8];
  if (isEmpty(from) || isEmpty(to) || !cxwin::anchorPath(from, f, sizeof f) ||
      !cxwin::anchorPath(to, t, sizeof t))
    return invalid();
  if (!MoveFileExA(f, t, MOVEFILE_REPLACE_EXISTING)) return cxwin::lastError();
  return CxStatus_ok();
}

int CxFile_exists(const CxFilePath* path) {
  DWORD a;
  return attributesOf(path, &a);
}

int CxFile_isDirectory(const CxFilePath* path) {
  DWORD a;
  int e = attributesOf(path, &a);
  if (e != 0) return e;
  return (a & FILE_ATTRIBUTE_DIRECTORY) ? 0 : ENOTDIR;
}

int CxFile_makeDirs(const CxFilePath* path, int mode) {
  DWORD a;
  int e = attributesOf(path, &a);
  if (e == 0) return (a & FILE_ATTRIBUTE_DIRECTORY) ? 0 : ENOTDIR;
  if (e == EINVAL) return EINVAL;
  /* The parent first; a drive ("C:") or the root needs no creating. */
  if (path->lastSep > 0 && !(path->lastSep == 2 && path->text[1] == ':')) {
    CxFilePath parent;
    memcpy(parent.text, path->text, (size_t)path->lastSep);
    parent.text[path->lastSep] = '\0';
    parent.length = path->lastSep;
    const char* sep = strrchr(parent.text, '/');
    parent.lastSep = sep ? (int32_t)(sep - parent.text) : -1;
    int pe = CxFile_makeDirs(&parent, mode);
    if (pe != 0) return pe;
  }
  char native[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(path->text, native, sizeof native)) return EINVAL;
  /* Intended: the mode is not applied; directories get the default permission. */
  if (_mkdir(native) == 0 || errno == EEXIST) return 0;
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
  char joined[CX_PATH_MAX + 8];
  int n = snprintf(joined, sizeof joined, "%s/%s", dir, name);
  if (n < 0 || n >= CX_PATH_MAX) return CxStatus_make('p', ENAMETOOLONG);
  /* A junction or symbolic link at the directory or at the entry is
     refused: it could lead the write anywhere. */
  char d[CX_PATH_MAX + 8], f[CX_PATH_MAX + 8];
  if (!cxwin::anchorPath(dir, d, sizeof d) || !cxwin::anchorPath(joined, f, sizeof f)) return invalid();
  size_t dl = strlen(d);
  while (dl > 3 && d[dl - 1] == '\\') d[--dl] = '\0';
  DWORD da = GetFileAttributesA(d);
  if (da == INVALID_FILE_ATTRIBUTES) return CxStatus_make('p', ENOENT);
  if (da & FILE_ATTRIBUTE_REPARSE_POINT) return CxStatus_make('p', 40);
  if (!(da & FILE_ATTRIBUTE_DIRECTORY)) return CxStatus_make('p', ENOTDIR);
  DWORD fa = GetFileAttributesA(f);
  if (fa != INVALID_FILE_ATTRIBUTES && (fa & FILE_ATTRIBUTE_REPARSE_POINT)) return CxStatus_make('p', 40);
  int e = cxwin::openDescriptor(f, native, nativeMode(mode), fd);
  return e == 0 ? CxStatus_ok() : CxStatus_make('p', e);
}

/* Windows has no FIFOs at file paths, but a reparse point (symbolic link or
   junction) may lead anywhere: refused, as a planted link is on POSIX.  A
   handle that is neither a disk file nor a character device is refused. */
CxStatus CxFile_openShared(int* fd, const char* path, int flags, int mode) {
  if (!fd) return invalid();
  *fd = -1;
  char p[CX_PATH_MAX + 8];
  if (isEmpty(path) || !cxwin::anchorPath(path, p, sizeof p)) return invalid();
  DWORD a = GetFileAttributesA(p);
  if (a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_REPARSE_POINT)) return CxStatus_make('p', 40);
  CxStatus st = CxFile_openMode(fd, path, flags, mode);
  if (!CxStatus_isOk(st)) return st;
  DWORD type = GetFileType((HANDLE)_get_osfhandle(*fd));
  if (type != FILE_TYPE_DISK && type != FILE_TYPE_CHAR) {
    CxFile_close(fd);
    return CxStatus_make('p', ENXIO);
  }
  return CxStatus_ok();
}

/* The file's index on its volume, asked of ntdll directly: the Win32 calls
   that return it also ask for the volume's serial number, which costs a
   request to the mount manager; the multi-process handler asks for both
   ids on every record.  The index alone tells the files apart: a path
   naming a file of the same index on another volume is not a case its
   callers meet.  The device field stays 0. */
static CxStatus idOfHandle(HANDLE h, CxFileId* out) {
  struct IoStatus { void* status; ULONG_PTR information; };
  typedef LONG(WINAPI * QueryFn)(HANDLE, IoStatus*, void*, ULONG, int);
  static const QueryFn query = (QueryFn)(void*)GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryInformationFile");
  const int kFileInternalInformation = 6;
  IoStatus io;
  LARGE_INTEGER index;
  if (!query || query(h, &io, &index, sizeof index, kFileInternalInformation) != 0)
    return CxStatus_make('p', EBADF);
  out->device = 0;
  out->inode = (uint64_t)index.QuadPart;
  return CxStatus_ok();
}

CxStatus CxFile_id(int fd, CxFileId* out) {
  if (!out || fd < 0) return invalid();
  intptr_t h = _get_osfhandle(fd);
  if (h == -1) return CxStatus_make('p', EBADF);
  return idOfHandle((HANDLE)h, out);
}

CxStatus CxFile_pathId(const char* path, CxFileId* out) {
  char p[CX_PATH_MAX + 8];
  if (!out || isEmpty(path) || !cxwin::anchorPath(path, p, sizeof p)) return invalid();
  HANDLE h = CreateFileA(p, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                         FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    DWORD e = GetLastError();
    if (e == ERROR_FILE_NOT_FOUND || e == ERROR_PATH_NOT_FOUND) return CxStatus_make('p', ENOENT);
    return cxwin::lastError();
  }
  CxStatus st = idOfHandle(h, out);
  CloseHandle(h);
  return st;
}

}  // extern "C"
