// SPDX-License-Identifier: Apache-2.0
/*
 * CX_HOT marks the functions every enabled record runs through, so that the
 * compiler keeps them side by side in one stretch of the text segment.
 * Where the kernel flushes the TLB at each system call (page-table
 * isolation without PCID), every code page the next record touches costs
 * a page walk; spread over the library, the path touched some twenty pages.
 * CX_COLD marks what those functions call only now and then (error
 * reports, the once-a-second clock refresh, the printf fallback): the
 * compiler moves the branches that lead there out of the hot stretch.
 */
#ifndef ARDEL_CXHOT_H
#define ARDEL_CXHOT_H

/* Initial-exec thread-locals: inside the shared library a thread-local
   otherwise costs a __tls_get_addr call (and its pages) on every access.
   They draw on the static TLS room a library loaded later shares with all
   others, so only small per-record state is declared this way. */
#if defined(__GNUC__)
#define QLG_TLS_IE __attribute__((tls_model("initial-exec")))
#else
#define QLG_TLS_IE
#endif

#if defined(__GNUC__)
#define CX_HOT __attribute__((hot))
#define CX_COLD __attribute__((cold))
#else
#define CX_HOT
#define CX_COLD
#endif

#endif
