// SPDX-License-Identifier: Apache-2.0
// The configuration checker: each small file is read and checked, and the
// report must name exactly the expected lines with the expected complaint;
// a clean file gives no report and exit status 0.
#include "Checker.h"
#include "support/TestSupport.h"

using namespace ardeltest;

namespace {

// The checker's report for content, with the file's path cut off each line.
std::string reportFor(const TempDir& dir, const std::string& content, int* findings) {
  std::string path = dir.write("check.properties", content);
  std::string out = dir.file("report");
  FILE* f = std::fopen(out.c_str(), "w");
  *findings = Checker_check(path, f);
  std::fclose(f);
  std::string text = readFile(out);
  for (size_t at = 0; (at = text.find(path + ":", at)) != std::string::npos;) text.erase(at, path.size() + 1);
  return text;
}

// Ten lines: a logger, a filter and a handler; handlers.* passes maxFiles down.
const char kGood[] =
    "# clean\napp.className=qlg_basiclogger\napp.level=warning\napp.listenerNames=errors handlers.file\n"
    "errors.className=qlg_levelfilter\nerrors.level=ERROR\nerrors.listenerNames=ardel.stderrHandler\n"
    "handlers.maxFiles=3\nhandlers.file.className=qlg_filehandler\nhandlers.file.maxFileBytes=1048576\n";

}  // namespace

TEST(ConfigCheck, EachMistakeIsReportedAtItsLine) {
  struct Case { const char* what; std::string content, report; /* "line: text" lines, in line order */ } cases[] = {
      {"a clean file", kGood, ""},
      {"unknown level names read as -9999", std::string(kGood) + "errors.level=TRACE\n",
       "11: errors.level: 'TRACE' is not a level name (FATAL ERROR WARN INFO DEBUG_MIN DEBUG_MID "
       "DEBUG_MAX ALL OFF or a number): it reads as -9999 and lets everything pass\n"},
      {"units and junk in numbers", std::string(kGood) + "handlers.file.maxFileBytes=10MB\nhandlers.maxFiles=many\n",
       "11: handlers.file.maxFileBytes: '10MB' is not a plain number: units are not understood, it reads as 10\n"
       "12: handlers.maxFiles: 'many' is not a number\n"},
      {"unknown class and property",
       std::string(kGood) + "handlers.file.maxFileSizes=3\nother.className=qlg_nosuchhandler\nother.level=INFO\n",
       "11: handlers.file: class qlg_filehandler has no property 'maxFileSizes'\n"
       "12: other: unknown class 'qlg_nosuchhandler' (objects of this name cannot be created)\n"},
      {"names that name nothing", std::string(kGood) + "app.listenerNames=handlers.file handlers.fiel\n",
       "11: app.listenerNames: 'handlers.fiel' names no configured object\n"},
      {"a listener cycle", std::string(kGood) + "handlers.file.listenerNames=app\n",
       "11: listener cycle: app -> handlers.file -> app (each event reaches these objects once)\n"},
      {"an object named under another takes its properties",
       std::string(kGood) + "app.out.className=qlg_consolehandler\n",
       "11: app.out inherits level, listenerNames from the object app (line 2): name it outside 'app.'\n"},
      {"rejected lines, and reading goes on",
       "a.className=qlg_basiclogger\nnodot=1\n = x\na.level=DEBUG\na.key\na.b=x\\ty\n",
       "2: the reader rejects this line: the key is not of the form object.property (key 'nodot')\n"
       "3: the reader rejects this line: a line starts with a separator and has no key\n"
       "4: a.level: 'DEBUG' is not a level name (FATAL ERROR WARN INFO DEBUG_MIN DEBUG_MID DEBUG_MAX ALL "
       "OFF or a number): it reads as -9999 and lets everything pass\n"
       "5: the reader rejects this line: the line ends after the key, without a separator (key 'a.key')\n"
       "6: the reader rejects this line: a backslash in a value may only escape a backslash, white space, "
       "a quote, a line end or u (key 'a.b')\n"},
      {"properties of class-less parents are known to some class",
       "handlers.maxFiles=3\nhandlers.colour=red\n", "2: handlers: no class has a property 'colour'\n"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    int findings = -1;
    std::string report = reportFor(dir, c.content, &findings);
    EXPECT_EQ(report, c.report) << c.what;
    EXPECT_EQ(findings, static_cast<int>(std::count(c.report.begin(), c.report.end(), '\n'))) << c.what;
  }
}

TEST(ConfigCheck, TheProgramExitsWithTheVerdict) {
  TempDir dir;
  std::string good = dir.write("good.properties", kGood);
  std::string bad = dir.write("bad.properties", "app.className=qlg_basiclogger\napp.level=TRACE\n");
  auto run = [](const std::string& args) {
    return WEXITSTATUS(std::system((ARDEL_CONFIG_TOOL " " + args + " >/dev/null 2>&1").c_str()));
  };
  EXPECT_EQ(run("check " + good), 0);
  EXPECT_EQ(run("check " + bad), 1);
  EXPECT_EQ(run("check " + dir.file("missing")), 1);
  EXPECT_EQ(run("frobnicate"), 2);
}
