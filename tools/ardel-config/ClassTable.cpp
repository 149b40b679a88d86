/*
 * The built-in classes the checker knows so far: the logger, the level
 * filter, the console handlers, the file handlers and the basic formatter.
 */
#include "ClassTable.h"

#include <cstring>

namespace {

#define COUNT(a) (sizeof(a) / sizeof((a)[0]))

const PropertyInfo kLevel[] = {{"level", PropType::Level, "", "", nullptr}};
const PropertyInfo kFile[] = {
    {"fileName", PropType::Text, "", "", nullptr},
    {"maxFileSize", PropType::Int, "", "", nullptr},
    {"maxFileBytes", PropType::Int64, "", "", nullptr},
    {"maxFiles", PropType::Int, "", "", nullptr},
    {"filePermission", PropType::Permission, "", "", nullptr},
    {"dirPermission", PropType::Permission, "", "", nullptr},
    {"appending", PropType::Bool, "", "", nullptr},
    {"fileEncoding", PropType::Text, "", "", nullptr},
    {"MPFileSemKey", PropType::Int, "", "", nullptr},
};
const PropertyInfo kFormatter[] = {
    {"dateTimeFormat", PropType::Text, "", "", nullptr},
    {"separator", PropType::Text, "", "", nullptr},
};
const ClassInfo kClasses[] = {
    {"qlg_basiclogger", 101, "", kLevel, COUNT(kLevel)},
    {"qlg_levelfilter", 102, "", kLevel, COUNT(kLevel)},
    {"qlg_consolehandler", 103, "", nullptr, 0},
    {"qlg_stderrhandler", 103, "", nullptr, 0},
    {"qlg_filehandler", 103, "", kFile, COUNT(kFile)},
    {"qlg_multiproc_filehandler", 103, "", kFile, COUNT(kFile)},
    {"qlg_basicformatter", 104, "", kFormatter, COUNT(kFormatter)},
};
const PropertyInfo kCommon[] = {
    {"logging", PropType::Bool, "", "", nullptr},
    {"listenerNames", PropType::Names, "", "", nullptr},
    {"description", PropType::Text, "", "", nullptr},
    {"descriptionFile", PropType::Text, "", "", nullptr},
    {"descriptionSet", PropType::Int, "", "", nullptr},
    {"descriptionKey", PropType::Int, "", "", nullptr},
    {"formatterName", PropType::ObjectName, "", "", nullptr},
};

}  // namespace

const ClassInfo* ClassTable_classes(size_t* count) {
  *count = COUNT(kClasses);
  return kClasses;
}

const ClassInfo* ClassTable_find(const char* name) {
  for (const ClassInfo& c : kClasses)
    if (name && std::strcmp(c.name, name) == 0) return &c;
  return nullptr;
}

const PropertyInfo* ClassTable_kindProperties(int kind, size_t* count) {
  /* formatterName is read by handlers only. */
  *count = COUNT(kCommon) - (kind == 103 ? 0 : 1);
  return kCommon;
}
