/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The ardel toolkit's public C interface in one include: start-up and the
 * lock, classes and objects, configurations, loggers and their log calls,
 * events, messages, properties, levels and parameter kinds.
 */
#ifndef ARDEL_TOOLKIT_H
#define ARDEL_TOOLKIT_H

#include <ardel/export.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgParm.h>
#include <ardel/QlgLevel.h>
#include <ardel/QlgProps.h>
#include <ardel/QlgI18Msg.h>
#include <ardel/QlgEvent.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgObjConfig.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgLogger.h>
#include <ardel/QlgToolkit.h>

#endif
