/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Export marking for the base library.  It is linked into the ardel shared
 * library, whose public Trace class hands these types to callers, so they
 * stay visible under the hidden-by-default build.
 */
#ifndef ARDEL_BASE_EXPORT_H
#define ARDEL_BASE_EXPORT_H

#if defined(_WIN32)
#  define BASE_API
#else
#  define BASE_API __attribute__((visibility("default")))
#endif

#endif
