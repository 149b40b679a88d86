// SPDX-License-Identifier: Apache-2.0
/*
 * The built-in classes and the properties each one reads, as plain data.
 * Defaults are written as a user reads them; a `checks` text says in one
 * line what a bad value does and which message it gives.  Classes that
 * share their property handling share one array here too (a class may use
 * a leading or trailing run of another's array), so the two can never
 * disagree.
 */
#include "ClassTable.h"

#include <string.h>

namespace {

constexpr int kLogger = 101;
constexpr int kFilter = 102;
constexpr int kHandler = 103;
constexpr int kFormatter = 104;

#define COUNT(a) (sizeof(a) / sizeof((a)[0]))

/* The four keys that describe the class (not the single object). */
#define DESCRIPTION_KEYS                                                                   \
  {"description", PropType::Text, "the class's own",                                       \
   "sets the description of the class, for every object of it", nullptr},                  \
  {"descriptionFile", PropType::Text, "the class's own", "catalog of the description",     \
   nullptr},                                                                               \
  {"descriptionSet", PropType::Int, "the class's own", "not a number: 0", nullptr},        \
  {"descriptionKey", PropType::Int, "the class's own", "not a number: 0", nullptr}

#define CLASS_NAME                                                                         \
  {"className", PropType::Text, "none",                                                    \
   "read at creation; unknown: QLGBC0062W, missing: QLGBC0063W, no object", nullptr}

/* The only switch that also reads on and off; every other boolean reads
   true or false only. */
#define LOGGING                                                                            \
  {"logging", PropType::Enum, "on", "any case; other words: unchanged", "on|true|off|false"}

const PropertyInfo kLoggerKind[] = {
    CLASS_NAME,
    {"level", PropType::Level, "3000 (DEBUG_MIN)",
     "empty: QLGBC04E, becomes 4000 (INFO); not a level: -9999, everything passes", nullptr},
    LOGGING,
    {"listenerNames", PropType::Names, "none",
     "none: QLGLG01E on every event; unknown class: QLGBC0063W; loggers are skipped",
     nullptr},
    DESCRIPTION_KEYS,
};

const PropertyInfo kFilterKind[] = {
    CLASS_NAME,
    LOGGING,
    {"listenerNames", PropType::Names, "none", "unknown class: QLGBC0063W, name left out",
     nullptr},
    DESCRIPTION_KEYS,
};

const PropertyInfo kHandlerKind[] = {
    CLASS_NAME,
    LOGGING,
    {"listenerNames", PropType::Names, "none", "unknown class: QLGBC0063W, name left out",
     nullptr},
    {"formatterName", PropType::ObjectName, "ardel.defaultFormatter",
     "unknown class: QLGBC0063W, formatter kept", nullptr},
    DESCRIPTION_KEYS,
};

const PropertyInfo kFormatterKind[] = {
    CLASS_NAME,
    DESCRIPTION_KEYS,
};

const PropertyInfo kPdLogger[] = {
    {"organization", PropType::Text, "none", "absent: not added to events", nullptr},
    {"product", PropType::Text, "none", "absent: not added to events", nullptr},
    {"component", PropType::Text, "none", "absent: not added to events", nullptr},
    {"client", PropType::Text, "none", "absent: not added to events", nullptr},
    {"server", PropType::Text, "the local host name",
     "host name unknown at creation: QLGLG0035E", nullptr},
    {"serverFormat", PropType::Text, "IP", "none", nullptr},
    {"productInstance", PropType::Text, "none", "absent: not added to events", nullptr},
};

const PropertyInfo kLevelFilter[] = {
    {"level", PropType::Level, "0 (ALL)",
     "empty: QLGBC04E, becomes 4000 (INFO); not a level: -9999, everything passes", nullptr},
};

const PropertyInfo kMsgIdFilter[] = {
    {"mode", PropType::Enum, "BLOCK", "any case; other words: QLGFF0020W, BLOCK",
     "BLOCK|PASSTHRU"},
    {"msgIds", PropType::Text, "*W *I", "wildcard patterns separated by white space",
     nullptr},
    {"msgIdRepeatTime", PropType::Int64, "0 (milliseconds, no repeat suppression)",
     "not a number: ignored", nullptr},
};

/* qlg_filehandler and qlg_multiproc_filehandler share this handling. */
const PropertyInfo kFileHandler[] = {
    {"fileName", PropType::Text, "default.log",
     "empty: QLGBC04E, default.log; over 260 characters: QLGBC0031E; bad directory: "
     "QLGFH0032E",
     nullptr},
    {"maxFileSize", PropType::Int, "1048576 (bytes)",
     "leading digits only (10MB is 10); not a number: 1024", nullptr},
    {"maxFileBytes", PropType::Int, "1048576 (bytes)",
     "below 1: QLGFH0078W, 1024; with maxFiles 1: QLGFH0079W", nullptr},
    {"maxFiles", PropType::Int, "3", "below 1: QLGFH0077W, 3; not a number: 3", nullptr},
    {"appending", PropType::Bool, "true", "only true/false; other values: true", nullptr},
    {"filePermission", PropType::Permission, "0744",
     "not octal: QLGMP0074W, old value kept", nullptr},
    {"dirPermission", PropType::Permission, "0771", "not octal: QLGMP0074W, old value kept",
     nullptr},
    {"fileEncoding", PropType::Text, "none (UTF-8)", "unknown codeset: QLGFH0036W, UTF-8",
     nullptr},
    {"MPFileSemKey", PropType::Int, "31821",
     "not a number: 0; used by qlg_multiproc_filehandler only", nullptr},
    {"logInternalErrs", PropType::Bool, "true", "takes the value of appending, not its own",
     nullptr},
    {"pathCheckInterval", PropType::Int, "0 (milliseconds)",
     "0: path checked before every record; n > 0: at most once per n ms", nullptr},
};

const PropertyInfo kTasHandler[] = {
    {"tasLoggerName", PropType::Text, "Ardel", "\"_\" is sent as \"-\"", nullptr},
    {"IPCID", PropType::Text, "QLG_TAS_HANDLER_IPC",
     "channel not open: QLGWH0091E; not sent: QLGWH0090E; ring full: QLGWH0094W", nullptr},
    {"traceEnabled", PropType::Bool, "false", "true: each text ends with a sequence number",
     nullptr},
    {"logInternalErrs", PropType::Bool, "true", "false silences the QLGWH messages", nullptr},
};

const PropertyInfo kSyslogHandler[] = {
    {"transport", PropType::Enum, "unix", "journald: the systemd journal's native protocol; other words: QLGSH0170W, value kept",
     "unix|udp|tcp|journald"},
    {"host", PropType::Text, "127.0.0.1", "collector for udp and tcp; empty: QLGSH0170W",
     nullptr},
    {"port", PropType::Int, "514", "1 to 65535, else QLGSH0170W", nullptr},
    {"socketPath", PropType::Text, "/dev/log (journald: /run/systemd/journal/socket)",
     "local datagram socket for unix and journald; too long: "
     "QLGSH0170W", nullptr},
    {"facility", PropType::Text, "user",
     "a name (kern, user, mail, daemon, auth, syslog, lpr, news, uucp, cron, authpriv, ftp, "
     "ntp, security, console, solaris-cron, local0 to local7) or 0 to 23, else QLGSH0170W",
     nullptr},
    {"appName", PropType::Text, "the program's file name",
     "1 to 48 printable ASCII characters, else QLGSH0170W", nullptr},
    {"maxBlockMs", PropType::Int, "10",
     "0 to 60000; longest wait for queue room per record, then the record is dropped "
     "(QLGSH0171W, QLGSH0172W)", nullptr},
    {"queueSize", PropType::Int, "1024", "1 to 1048576 records; read when the queue starts",
     nullptr},
    {"maxRecordBytes", PropType::Int, "2048",
     "480 to 65000; longer records are cut inside the message text", nullptr},
    {"logInternalErrs", PropType::Bool, "true", "false silences the QLGSH messages", nullptr},
};

const PropertyInfo kAsyncHandler[] = {
    {"queueSize", PropType::Int, "8192", "1 to 1048576 records, else QLGAH0180W; read when the "
     "queue starts (first event)", nullptr},
    {"overflowPolicy", PropType::Enum, "BLOCK",
     "other words: QLGAH0180W, value kept; drops are counted and reported (QLGAH0181W)",
     "BLOCK|DROP_NEW|OVERRUN_OLDEST"},
    {"flushIntervalMs", PropType::Int, "0",
     "0 to 60000, else QLGAH0180W; longest time records collect before delivery (0: at once)",
     nullptr},
    {"logInternalErrs", PropType::Bool, "true", "false silences the QLGAH messages", nullptr},
};

/* The basic formatter reads the first three; the XML formatter ignores the
   separator and reads the rest. */
const PropertyInfo kFormatters[] = {
    {"separator", PropType::Text, "\" \" (one blank)", "none", nullptr},
    {"dateTimeFormat", PropType::Text, "built-in stamp with milliseconds and UTC offset",
     "a strftime pattern; result cut at 127 bytes", nullptr},
    {"locale", PropType::Text, "none (the event's own)", "none", nullptr},
    {"singleComponent", PropType::Bool, "false", "not true/false: false", nullptr},
    {"singleProduct", PropType::Bool, "false", "not true/false: false", nullptr},
    {"singleProductId", PropType::Bool, "false", "not true/false: false", nullptr},
    {"singleServer", PropType::Bool, "false", "not true/false: false", nullptr},
    {"forceAsMessage", PropType::Bool, "false", "with forceAsTrace: neither applies",
     nullptr},
    {"forceAsTrace", PropType::Bool, "false", "with forceAsMessage: neither applies",
     nullptr},
};
constexpr size_t kBasicFormatterCount = 3;

/* The trigger handler reads the first eight; the file-copy handler all. */
const PropertyInfo kFfdc[] = {
    {"baseDir", PropType::Text, "none",
     "unset: QLGFF0012E at start (the first event); cannot be created, or a day's directory is "
     "a link: QLGFF0013E; not a valid path: stays unset",
     nullptr},
    {"maxDiskSpace", PropType::Int64, "10485760 (bytes)", "below 1 or not a number: ignored",
     nullptr},
    {"triggerFilter", PropType::ObjectName, "none",
     "unset: QLGFF0011E at start (the first event), nothing triggers", nullptr},
    {"triggerRepeatTime", PropType::Int64, "0 (milliseconds)",
     "below 1 or not a number: ignored", nullptr},
    {"quotaPolicy", PropType::Enum, "QUOTA_AUTODELETE",
     "exact case; other text: ignored; over quota: QLGFF0061E or QLGFF0014W",
     "QUOTA_IGNORE|QUOTA_AUTODELETE|QUOTA_SUSPEND"},
    {"firstWarning", PropType::Text, "0.75", "a number strictly between 0 and 1, else ignored",
     nullptr},
    {"secondWarning", PropType::Text, "0.9", "a number strictly between 0 and 1, else ignored",
     nullptr},
    {"warnOnDiskSpace", PropType::Bool, "false",
     "true: QLGFF0060W, QLGFF0015I, QLGFF0014W near the quota", nullptr},
    {"filesToCopy", PropType::Text, "none",
     "separated by single spaces; missing: QLGFF0062W; not copied: QLGFF0063W", nullptr},
    {"zipFileName", PropType::Text, "none (files are copied)",
     "\".zip\" appended when missing; a name with a directory part, or no archive made: "
     "QLGFF0064E", nullptr},
    {"zipCmdPath", PropType::Text, "none",
     "shell characters or no such file: QLGFF0065E, previous kept", nullptr},
    {"zipTimeout", PropType::Int, "60000 (milliseconds)",
     "below 1 or not a number: ignored; a longer zip run is ended and reported", nullptr},
};
constexpr size_t kTriggerCount = 8;

const ClassInfo kClasses[] = {
    {"qlg_basiclogger", kLogger,
     "Passes every event at or above its level to its listeners, in order.", nullptr, 0},
    {"qlg_pdlogger", kLogger,
     "A basic logger that also stamps every event with the installation's identity, the "
     "process and thread, and the message ID.",
     kPdLogger, COUNT(kPdLogger)},
    {"qlg_levelfilter", kFilter,
     "Passes an event on to its listeners only when the event's level is at or above the "
     "filter's level.",
     kLevelFilter, COUNT(kLevelFilter)},
    {"qlg_msgidfilter", kFilter,
     "Blocks or passes events by message ID against wildcard patterns, and can suppress "
     "repeats of one ID within an interval.",
     kMsgIdFilter, COUNT(kMsgIdFilter)},
    {"qlg_consolehandler", kHandler, "Writes each formatted event to standard output.", nullptr,
     0},
    {"qlg_stderrhandler", kHandler,
     "Writes each formatted event to standard error (a formatter's head goes to standard "
     "output).",
     nullptr, 0},
    {"qlg_filehandler", kHandler,
     "Writes formatted events to a local log file and keeps maxFiles - 1 numbered backups by "
     "size-based rollover.",
     kFileHandler, COUNT(kFileHandler)},
    {"qlg_tashandler", kHandler,
     "Sends each event's message text to a co-located application server through a "
     "shared-memory ring.",
     kTasHandler, COUNT(kTasHandler)},
    {"qlg_multiproc_filehandler", kHandler,
     "A file handler that several processes share: it always appends, writes and rolls over "
     "under a cross-process lock keyed by MPFileSemKey, and reports a failed rollover copy "
     "with QLGMP0072W or QLGMP0073W. The copy goes to the file name plus .rollover first, so a "
     "writer killed in a rollover loses and repeats no record, and a copy cut short (a full "
     "disk) leaves the file as it is until the next record; a file removed or renamed is "
     "opened again.",
     kFileHandler, COUNT(kFileHandler)},
    {"qlg_basicformatter", kFormatter,
     "Formats an event as one line: time stamp, source location and identity fields, then "
     "the message text.",
     kFormatters, kBasicFormatterCount},
    {"qlg_xmlformatter", kFormatter,
     "Formats an event as one XML Message or Trace element with time, identity, text, "
     "attributes, source and translation data.",
     kFormatters + 1, COUNT(kFormatters) - 1},
    {"qlg_zarvotraceformatter", kFormatter,
     "Formats an event as one trace line of fixed fields separated by \" - \", starting with "
     "the character 0x1E; it has no properties of its own.",
     nullptr, 0},
    {"qlg_ffdc_trigger_handler", kHandler,
     "Starts first-failure data capture for events that its trigger filter accepts, at most "
     "once per repeat interval, under a disk quota.",
     kFfdc, kTriggerCount},
    {"qlg_ffdc_filecopy_handler", kHandler,
     "A trigger handler that copies the listed files, or zips them, into the event's dated "
     "FFDC directory.",
     kFfdc, COUNT(kFfdc)},
    {"qlg_sysloghandler", kHandler,
     "Sends each event as an RFC 5424 record to a log collector over the local syslog "
     "socket, UDP or TCP (octet counting) through a bounded queue and a sender thread; "
     "reconnects after the collector restarts and counts what a full queue drops.",
     kSyslogHandler, COUNT(kSyslogHandler)},
    {"qlg_asynchandler", kHandler,
     "Queues each event (a full copy) and returns; a background thread hands the queued "
     "events in order to the handler's listeners; drained by ardel_flush, close and exit.",
     kAsyncHandler, COUNT(kAsyncHandler)},
};

}  // namespace

const ClassInfo* ClassTable_classes(size_t* count) {
  if (count) *count = COUNT(kClasses);
  return kClasses;
}

const ClassInfo* ClassTable_find(const char* className) {
  if (!className) return nullptr;
  for (const ClassInfo& c : kClasses)
    if (strcmp(c.name, className) == 0) return &c;
  return nullptr;
}

const PropertyInfo* ClassTable_kindProperties(int kind, size_t* count) {
  const PropertyInfo* props = nullptr;
  size_t n = 0;
  switch (kind) {
    case kLogger: props = kLoggerKind; n = COUNT(kLoggerKind); break;
    case kFilter: props = kFilterKind; n = COUNT(kFilterKind); break;
    case kHandler: props = kHandlerKind; n = COUNT(kHandlerKind); break;
    case kFormatter: props = kFormatterKind; n = COUNT(kFormatterKind); break;
    default: break;
  }
  if (count) *count = n;
  return props;
}
