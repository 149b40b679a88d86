// SPDX-License-Identifier: Apache-2.0
/*
 * The class reference (docs/classes.md) printed from the class table, so
 * that the documentation says exactly what the checker knows.
 */
#ifndef ARDEL_TOOLS_REFERENCE_H
#define ARDEL_TOOLS_REFERENCE_H

#include <stdio.h>

/* Prints the Markdown reference of every built-in class to out. */
void ClassTable_printReference(FILE* out);

#endif
