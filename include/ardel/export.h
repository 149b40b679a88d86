/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Export marking for the ardel shared library.  The library is built with
 * hidden visibility; only names marked ARDEL_API are visible to programs.
 */
#ifndef ARDEL_EXPORT_H
#define ARDEL_EXPORT_H

#if defined(_WIN32) && defined(ARDEL_STATIC_LINK)
#  define ARDEL_API
#elif defined(_WIN32)
#  if defined(ARDEL_BUILDING)
#    define ARDEL_API __declspec(dllexport)
#  else
#    define ARDEL_API __declspec(dllimport)
#  endif
#else
#  define ARDEL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#  define ARDEL_BEGIN_C extern "C" {
#  define ARDEL_END_C }
#else
#  define ARDEL_BEGIN_C
#  define ARDEL_END_C
#endif

#endif
