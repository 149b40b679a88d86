/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * ArdelWrapper: the class interface to the component trace records.  Each
 * of the eight components has one shared instance, a handle on its
 * CLogWrapper record; every trace member formats the caller's text once and
 * forwards it to the matching C trace call on that record.  Instances are
 * created on first request and live until cleanupInstances().
 *
 * @code
 *   ArdelWrapper* log = ArdelWrapper::getInstance(ArdelWrapper::HW);
 *   log->traceMIN(__LINE__, __FILE__, "scan", "found %d devices", n);
 * @endcode
 */
#ifndef ARDEL_ARDELWRAPPER_H
#define ARDEL_ARDELWRAPPER_H

#include <ardel/CLogWrapper.h>
#include <ardel/export.h>

class ARDEL_API ArdelWrapper {
 public:
  /* Numbered as the component records: HW is createWrapper(0), and so on. */
  enum ArdelLogType { HW = 0, SW = 1, COM = 2, XSE = 3, FS = 4, PLUGIN = 5, USE = 6, NET = 7 };

  /* The shared instance of a component, created on first use; null for a
     type outside HW..NET or when the instance cannot be allocated. */
  static ArdelWrapper* getInstance(ArdelLogType type);

  /* Destroys every instance and empties the slots; the records stay filled,
     so a later getInstance builds a new handle on the same record. */
  static void cleanupInstances();

  /* Waits until every record queued by an asynchronous handler before this
     call has been handed to its listeners (ardel_flush). */
  static void flush();

  /* Settles the properties path (initializeWrapper); the result is dropped. */
  static void initialize(const char* path);

  ArdelWrapper(const ArdelWrapper& other);
  ArdelWrapper& operator=(const ArdelWrapper& other);

  /* The text is formatted here (cut at 1,023 characters) before the record's
     level gate, so a suppressed call still pays for its formatting. */
  void traceMAX(int line, const char* sourceFile, const char* methodName, const char* format, ...)
      ARDEL_PRINTF_LIKE(5, 6);
  void traceMID(int line, const char* sourceFile, const char* methodName, const char* format, ...)
      ARDEL_PRINTF_LIKE(5, 6);
  void traceMIN(int line, const char* sourceFile, const char* methodName, const char* format, ...)
      ARDEL_PRINTF_LIKE(5, 6);
  /* Despite the names these give the "Entry " and "Exit " marks, emitted at
     maximum tracing only. */
  void traceMidEntry(int line, const char* sourceFile, const char* methodName, const char* format, ...)
      ARDEL_PRINTF_LIKE(5, 6);
  void traceMidExit(int line, const char* sourceFile, const char* methodName, const char* format, ...)
      ARDEL_PRINTF_LIKE(5, 6);

  /* True only when the record's level equals level exactly. */
  bool istraceActive(int level);
  /* The record's level: 0, 1, 2 or 4. */
  int getTrcLevel();

  /* One slot per component, null until first requested. */
  static ArdelWrapper* HardwareWrapper_;
  static ArdelWrapper* VpdWrapper_;
  static ArdelWrapper* ComWrapper_;
  static ArdelWrapper* XseWrapper_;
  static ArdelWrapper* FsWrapper_;
  static ArdelWrapper* PluginWrapper_;
  static ArdelWrapper* UseWrapper_;
  static ArdelWrapper* NetWrapper_;

 private:
  explicit ArdelWrapper(const CLogWrapper* record);
  /* Private: only cleanupInstances destroys the shared instances. */
  virtual ~ArdelWrapper();

  CLogWrapper* record_;
};

ARDEL_BEGIN_C
ARDEL_API ArdelWrapper* getArdelHw(void);
ARDEL_API ArdelWrapper* getArdelSw(void);
ARDEL_API ArdelWrapper* getArdelCom(void);
ARDEL_API ArdelWrapper* getArdelXse(void);
ARDEL_API ArdelWrapper* getArdelFs(void);
ARDEL_API ArdelWrapper* getArdelPlugin(void);
ARDEL_API ArdelWrapper* getArdelUse(void);
ARDEL_API ArdelWrapper* getArdelNet(void);
ARDEL_END_C

#endif
