// SPDX-License-Identifier: Apache-2.0
/*
 * The configuration checker: reads a properties file the way the toolkit
 * does and reports, as "file:line: text", every line the reader rejects and
 * every entry that the toolkit would take silently but that cannot mean
 * what its author wanted.
 */
#ifndef ARDEL_TOOLS_CHECKER_H
#define ARDEL_TOOLS_CHECKER_H

#include <cstdio>
#include <map>
#include <string>
#include <vector>

/* One file's entries, with inheritance by dotted names as the toolkit applies it. */
class ConfigModel {
 public:
  struct Value {
    std::string text;
    int line;
  };
  struct Finding {
    int line;
    std::string text;
  };

  /* Reads path; lines the reader rejects become findings.  False when the
     file cannot be opened. */
  bool read(const std::string& path);

  /* The value of property for object, searched in the object's own entries
     and then in its nearest configured dotted ancestors; null when absent. */
  const Value* lookup(const std::string& object, const std::string& property) const;
  /* The object's class name (own or inherited), "" when it has none. */
  std::string classOf(const std::string& object) const;
  /* The object's listeners, in order. */
  std::vector<std::string> listenersOf(const std::string& object) const;

  /* Objects in the order of their first entry, and their own entries. */
  const std::vector<std::string>& objects() const { return order_; }
  const std::map<std::string, Value>& own(const std::string& object) const;

  std::vector<Finding> findings;

 private:
  static void visit(void* self, int line, const char* key, const char* value, const char* error);
  std::map<std::string, std::map<std::string, Value>> entries_;
  std::vector<std::string> order_;
};

/* True for the objects the toolkit makes for itself (the error logger and
   its handler and formatter): a file may name them without configuring them. */
bool Checker_isBuiltinObject(const std::string& name);

/* Checks the file, printing findings as "path:line: text" to out.  Returns
   the number of findings (an unreadable file counts as one). */
int Checker_check(const std::string& path, FILE* out);

#endif
