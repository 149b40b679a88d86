// SPDX-License-Identifier: Apache-2.0
/*
 * Configuration checks.  The model is read with the toolkit's own reader in
 * checking mode, so a line is rejected here exactly when the toolkit would
 * reject it; the other checks look at what the toolkit accepts without a
 * word: unknown classes and properties, level names that are not levels,
 * numbers with units, names of objects that are configured nowhere, and
 * listener cycles.
 */
#include "Checker.h"

#include <ardel/QlgLevel.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <strings.h>

#include "ClassTable.h"
#include "core/QlgReadProps.h"

namespace {

/* Objects the toolkit makes for itself: a configuration may name them
   without configuring them. */
const char* const kBuiltinObjects[] = {"ardel.errorLogger", "ardel.stderrHandler",
                                       "ardel.defaultFormatter"};

}  // namespace

bool Checker_isBuiltinObject(const std::string& name) {
  for (const char* b : kBuiltinObjects)
    if (name == b) return true;
  return false;
}

namespace {

std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string w;
  while (in >> w) out.push_back(w);
  return out;
}

const PropertyInfo* findProperty(const PropertyInfo* props, size_t n, const std::string& name) {
  for (size_t i = 0; i < n; i++)
    if (name == props[i].name) return &props[i];
  return nullptr;
}

/* The property as the class of kind reads it, or null. */
const PropertyInfo* propertyOf(const ClassInfo* cls, const std::string& name) {
  const PropertyInfo* p = findProperty(cls->properties, cls->count, name);
  if (p) return p;
  size_t n = 0;
  const PropertyInfo* common = ClassTable_kindProperties(cls->kind, &n);
  return findProperty(common, n, name);
}

/* The property as any built-in class reads it: for entries on objects
   without a class, which only pass properties down to their descendants. */
const PropertyInfo* propertyOfAnyClass(const std::string& name) {
  size_t n = 0;
  const ClassInfo* classes = ClassTable_classes(&n);
  for (size_t i = 0; i < n; i++)
    if (const PropertyInfo* p = propertyOf(&classes[i], name)) return p;
  return nullptr;
}

bool equalsIgnoringCase(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

/* A decimal number with nothing after it (white space aside); out gets the value. */
bool wholeNumber(const std::string& text, bool allowSign, long long* out) {
  const char* s = text.c_str();
  while (isspace(static_cast<unsigned char>(*s))) s++;
  if (!allowSign && (*s == '-' || *s == '+')) return false;
  if (!isdigit(static_cast<unsigned char>(*s)) && *s != '-' && *s != '+') return false;
  char* end = nullptr;
  errno = 0;
  long long v = strtoll(s, &end, 10);
  if (errno == ERANGE || end == s) return false;
  while (isspace(static_cast<unsigned char>(*end))) end++;
  *out = v;
  return *end == '\0';
}

std::string quoted(const std::string& s) { return "'" + s + "'"; }

class Checks {
 public:
  explicit Checks(ConfigModel& model) : m_(model) {}

  void run() {
    for (const std::string& obj : m_.objects()) checkObject(obj);
    checkCycles();
  }

 private:
  void add(int line, const std::string& text) { m_.findings.push_back({line, text}); }

  bool configured(const std::string& name) const {
    return !m_.classOf(name).empty() || Checker_isBuiltinObject(name);
  }

  void checkObject(const std::string& obj) {
    const auto& own = m_.own(obj);
    std::string className = m_.classOf(obj);
    const ClassInfo* info = nullptr;
    bool registered = false;
    if (!className.empty()) {
      info = ClassTable_find(className.c_str());
      registered = QlgClass_find(className.c_str()) != nullptr;
    }
    auto cn = own.find("className");
    if (cn != own.end() && !registered)
      add(cn->second.line, obj + ": unknown class " + quoted(cn->second.text) +
                               " (objects of this name cannot be created)");
    if (cn != own.end()) checkInheritedFromObject(obj, own);
    for (const auto& entry : own) {
      const std::string& prop = entry.first;
      const ConfigModel::Value& v = entry.second;
      if (prop == "className") continue;
      const PropertyInfo* p = nullptr;
      if (info) {
        p = propertyOf(info, prop);
        if (!p) {
          add(v.line, obj + ": class " + className + " has no property " + quoted(prop));
          continue;
        }
      } else if (className.empty()) {
        p = propertyOfAnyClass(prop);
        if (!p) {
          add(v.line, obj + ": no class has a property " + quoted(prop));
          continue;
        }
      } else {
        continue; /* a class of the program's own: its properties are its business */
      }
      checkValue(obj, *p, v);
    }
  }

  /* An object named under another object ("app.file" under the logger
     "app") takes every property of it that it does not set itself: a
     handler gets the logger's listeners.  Almost never what was meant. */
  void checkInheritedFromObject(const std::string& obj, const std::map<std::string, ConfigModel::Value>& own) {
    for (std::string up = obj; up.rfind('.') != std::string::npos;) {
      up.erase(up.rfind('.'));
      const auto& theirs = m_.own(up);
      if (theirs.find("className") == theirs.end()) continue;
      std::string taken;
      for (const auto& e : theirs)
        if (e.first != "className" && own.find(e.first) == own.end())
          taken += (taken.empty() ? "" : ", ") + e.first;
      if (!taken.empty())
        add(own.at("className").line, obj + " inherits " + taken + " from the object " + up +
                                           " (line " + std::to_string(theirs.at("className").line) +
                                           "): name it outside " + quoted(up + "."));
      return;
    }
  }

  void checkValue(const std::string& obj, const PropertyInfo& p, const ConfigModel::Value& v) {
    const std::string where = obj + "." + p.name + ": ";
    long long n = 0;
    switch (p.type) {
      case PropType::Level:
        if (QlgLevel_parse(v.text.c_str()) == QLG_LEVEL_NONE && !wholeNumber(v.text, true, &n))
          add(v.line, where + quoted(v.text) +
                          " is not a level name (FATAL ERROR WARN INFO DEBUG_MIN DEBUG_MID "
                          "DEBUG_MAX ALL OFF or a number): it reads as -9999 and lets everything pass");
        break;
      case PropType::Int:
      case PropType::Int64:
        if (!wholeNumber(v.text, true, &n)) {
          long long lead = std::strtoll(v.text.c_str(), nullptr, 10);
          if (isdigit(static_cast<unsigned char>(v.text.empty() ? 'x' : v.text[0])))
            add(v.line, where + quoted(v.text) + " is not a plain number: units are not understood, it reads as " +
                            std::to_string(lead));
          else
            add(v.line, where + quoted(v.text) + " is not a number");
        } else if (p.type == PropType::Int && (n > 2147483647LL || n < -2147483648LL)) {
          add(v.line, where + quoted(v.text) + " is out of the 32-bit range");
        }
        break;
      case PropType::Permission:
        if (v.text.empty() || v.text.find_first_not_of("01234567") != std::string::npos || v.text.size() > 4)
          add(v.line, where + quoted(v.text) + " is not an octal permission such as 640");
        break;
      case PropType::Bool:
        if (!equalsIgnoringCase(v.text, "true") && !equalsIgnoringCase(v.text, "false"))
          add(v.line, where + quoted(v.text) + " is not true or false");
        break;
      case PropType::Enum: {
        bool ok = false;
        std::string choices = p.choices ? p.choices : "";
        std::istringstream in(choices);
        std::string c;
        while (std::getline(in, c, '|')) ok = ok || equalsIgnoringCase(v.text, c.c_str());
        if (!ok) {
          std::replace(choices.begin(), choices.end(), '|', ' ');
          add(v.line, where + quoted(v.text) + " is not one of " + choices);
        }
        break;
      }
      case PropType::Names:
        for (const std::string& name : splitWords(v.text))
          if (!configured(name)) add(v.line, where + quoted(name) + " names no configured object");
        break;
      case PropType::ObjectName:
        if (!v.text.empty() && !configured(v.text))
          add(v.line, where + quoted(v.text) + " names no configured object");
        break;
      case PropType::Text:
        break;
    }
  }

  /* Depth-first over listener edges; a back edge closes a cycle, reported
     once at the listenerNames entry that closes it. */
  void checkCycles() {
    std::map<std::string, int> state; /* 0 new, 1 on the path, 2 done */
    std::vector<std::string> path;
    std::set<std::string> reported;
    for (const std::string& obj : m_.objects())
      if (!m_.classOf(obj).empty()) walk(obj, state, path, reported);
  }

  void walk(const std::string& obj, std::map<std::string, int>& state, std::vector<std::string>& path,
            std::set<std::string>& reported) {
    state[obj] = 1;
    path.push_back(obj);
    for (const std::string& next : m_.listenersOf(obj)) {
      if (state[next] == 1) {
        auto from = std::find(path.begin(), path.end(), next);
        std::string cycle;
        for (auto it = from; it != path.end(); ++it) cycle += *it + " -> ";
        cycle += next;
        const ConfigModel::Value* v = m_.lookup(obj, "listenerNames");
        if (reported.insert(cycle).second)
          add(v ? v->line : 0, "listener cycle: " + cycle + " (each event reaches these objects once)");
      } else if (state[next] == 0 && !m_.classOf(next).empty()) {
        walk(next, state, path, reported);
      }
    }
    path.pop_back();
    state[obj] = 2;
  }

  ConfigModel& m_;
};

}  // namespace

void ConfigModel::visit(void* self, int line, const char* key, const char* value, const char* error) {
  ConfigModel* m = static_cast<ConfigModel*>(self);
  if (error) {
    std::string text = "the reader rejects this line: ";
    text += error;
    if (key && *key) text += std::string(" (key ") + quoted(key) + ")";
    m->findings.push_back({line, text});
    return;
  }
  std::string k = key, obj = k.substr(0, k.rfind('.')), prop = k.substr(k.rfind('.') + 1);
  auto& own = m->entries_[obj];
  if (own.empty()) m->order_.push_back(obj);
  own[prop] = Value{value, line};
}

bool ConfigModel::read(const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  std::fclose(f);
  QlgReadProps_check(path.c_str(), &ConfigModel::visit, this);
  return true;
}

const std::map<std::string, ConfigModel::Value>& ConfigModel::own(const std::string& object) const {
  static const std::map<std::string, Value> none;
  auto it = entries_.find(object);
  return it == entries_.end() ? none : it->second;
}

const ConfigModel::Value* ConfigModel::lookup(const std::string& object, const std::string& property) const {
  std::string name = object;
  for (;;) {
    auto it = entries_.find(name);
    if (it != entries_.end()) {
      auto p = it->second.find(property);
      if (p != it->second.end()) return &p->second;
    }
    size_t dot = name.rfind('.');
    if (dot == std::string::npos) return nullptr;
    name.erase(dot);
  }
}

std::string ConfigModel::classOf(const std::string& object) const {
  const Value* v = lookup(object, "className");
  return v ? v->text : std::string();
}

std::vector<std::string> ConfigModel::listenersOf(const std::string& object) const {
  const Value* v = lookup(object, "listenerNames");
  return v ? splitWords(v->text) : std::vector<std::string>();
}

int Checker_check(const std::string& path, FILE* out) {
  ConfigModel model;
  if (!model.read(path)) {
    std::fprintf(out, "%s: cannot be opened: %s\n", path.c_str(), std::strerror(errno));
    return 1;
  }
  /* The registry of classes comes from the library itself, so a class the
     library has is never reported unknown. */
  QlgToolkit_initialize(nullptr);
  QlgToolkit_enter();
  Checks(model).run();
  QlgToolkit_leave();
  std::stable_sort(model.findings.begin(), model.findings.end(),
                   [](const ConfigModel::Finding& a, const ConfigModel::Finding& b) { return a.line < b.line; });
  for (const auto& f : model.findings) std::fprintf(out, "%s:%d: %s\n", path.c_str(), f.line, f.text.c_str());
  return static_cast<int>(model.findings.size());
}
