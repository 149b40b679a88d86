// SPDX-License-Identifier: Apache-2.0
/*
 * qlg_filehandler: names and paths, properties, head/record/tail placement,
 * rollover, and null arguments and foreign objects (with the multi-process
 * class where the rule is shared).
 */

#include <filesystem>

#include "handlers/FileHandlerFixture.h"
#include "handlers/QlgMultiProcFileHandler.h"

namespace {

using namespace fhtest;
using FileHandlerTest = fhtest::FileHandlerFixture;

std::string cwd() {
  char buf[4096];
  return getcwd(buf, sizeof buf) ? buf : "";
}

/* ---- names and paths ---- */

TEST_F(FileHandlerTest, NamesAreSplitComposedOrRejectedAndReported) {
  QlgFileHandlerData* d = static_cast<QlgFileHandlerData*>(QlgFileHandler_create());
  ASSERT_NE(d, nullptr);
  /* The base name keeps its separator; an empty directory part means the
     working directory; a trailing number is the index (-1: not checked);
     no name, or one longer than 260 characters, leaves no path. */
  const std::string a260(260, 'a'), a261(261, 'a');
  struct { const char* name; std::string path; int index; } cases[] = {
      {"/logs/x.log", "/logs//x.log", 0}, {"var/log/trace12.txt", "var/log//trace12.txt", 12},
      {"plain", cwd() + "/plain", 0}, {"/top.log", cwd() + "//top.log", 0}, {nullptr, "(null)", -1},
      {a261.c_str(), "(null)", -1}, {a260.c_str(), cwd() + "/" + a260, -1}};
  CaptureFd err(2);
  for (const auto& c : cases) {
    QlgFileHandler_setFileName(c.name, d);
    EXPECT_EQ(std::string(d->path ? d->path : "(null)"), c.path);
    EXPECT_TRUE(c.index < 0 || d->index == c.index) << c.name << ": " << d->index;
  }
  d->logInternalErrs = 0;
  QlgFileHandler_setFileName(nullptr, d);
  std::string text = err.text();
  EXPECT_HAS(text, "QLGBC0030E A value must be specified for the property 'fileName'");
  EXPECT_HAS(text, "QLGBC0031E Property 'fileName' must be 260 characters or less.");
  EXPECT_EQ(text.find("QLGBC0030E"), text.rfind("QLGBC0030E")) << "silenced when logInternalErrs is off";
  QlgFileHandler_destroy(d);
  EXPECT_EQ(QlgFileHandler_composePath("/logs", nullptr, 1, "log"), nullptr);
}

TEST_F(FileHandlerTest, ConfiguredNamesGetTheirDigitGuardedOrAreReportedAndReplaced) {
  CaptureFd err(2);
  /* Only the digit before the last dot counts. */
  std::pair<std::string, std::string> cases[] = {
      {dir_.file("trace3.log"), dir_.path() + "//trace3_.log"}, {dir_.file("123"), dir_.path() + "//123_"},
      {dir_.file("log2.x.txt"), dir_.path() + "//log2.x.txt"}, {"", cwd() + "/default.log"}};
  for (const auto& c : cases) EXPECT_EQ(path(handler({{"fileName", c.first}})), c.second);
  EXPECT_HAS(err.text(), "QLGBC04E Property 'fileName' will be ignored for '" + prefix_ + "h6'");
}

/* ---- properties ---- */

TEST_F(FileHandlerTest, PropertyChecksStoreTheirFallbacksAndWarnUnlessSilenced) {
  /* maxFiles maxFileSize logInternalErrs filePermission (octal), then
     whether there is a converter and a lock key. */
  auto fields = [](QlgFileHandlerData* d) {
    char text[96];
    snprintf(text, sizeof text, "%d %lld %d %o %d %d", (int)d->maxFiles, (long long)d->maxFileSize, (int)d->logInternalErrs,
             (unsigned)d->filePermission, d->converter != nullptr, d->semKey != 0);
    return std::string(text);
  };
  /* "%1s" is the handler's name; "%2d" is a width of two, not a position. */
  struct { Props props; std::string want, message; } cases[] = {
      {{{"maxFiles", "0"}}, "3 1048576 1 744 0 1",
       "QLGFH0077W Property 'maxFiles' will be ignored for file handler %1s, because the value  0 is not "
       "greater than zero."},
      {{{"maxFileBytes", "-5"}}, "3 1024 1 744 0 1",
       "QLGFH0078W Property 'maxFileBytes' will be ignored for file handler '%1s', because the value -5 is "
       "not greater than zero."},
      {{{"maxFiles", "1"}, {"maxFileBytes", "500"}}, "1 500 1 744 0 1",
       "QLGFH0079W Property 'maxFileBytes' will be ignored for file handler '%1s', because property "
       "'maxFiles' is set to 1."},
      {{{"maxFileSize", "abc"}}, "3 1024 1 744 0 1", ""},
      {{{"filePermission", "rw-r"}}, "3 1048576 1 744 0 1",
       "QLGMP0074W The value rw-r is not a valid file permission mask for file handler %1s."},
      {{{"fileEncoding", "NO-SUCH-CODESET"}}, "3 1048576 1 744 0 1", "QLGFH0036W Could not load codeset NO-SUCH-CODESET."},
      {{{"fileEncoding", "utf8"}}, "3 1048576 1 744 1 1", ""},
      /* The flag takes the value of appending (absent reads as true). */
      {{{"appending", "false"}, {"logInternalErrs", "true"}, {"maxFiles", "-1"}}, "3 1048576 0 744 0 1", ""},
      {{{"logInternalErrs", "false"}}, "3 1048576 1 744 0 1", ""},
      {{{"MPFileSemKey", "none"}}, "3 1048576 1 744 0 0", ""}};
  for (const auto& c : cases) {
    std::string name = prefix_ + "h" + std::to_string(made_);
    SCOPED_TRACE(c.props.back().first + "=" + c.props.back().second);
    CaptureFd err(2);
    QlgFileHandlerData* d = data(handler(c.props));
    EXPECT_EQ(fields(d), c.want);
    std::string message = c.message;
    size_t at = message.find("%1s");
    if (at != std::string::npos) message.replace(at, 3, name);
    if (message.empty()) {
      EXPECT_EQ(err.text(), "");
    } else {
      EXPECT_HAS(err.text(), message);
    }
  }
}

/* ---- writing ---- */

TEST_F(FileHandlerTest, HeadRecordsAndTailLandAsEachScenarioWants) {
  std::string rec = make("test_recorder")->name;
  struct {
    const char* file;
    Props props;
    const char* existing;
    std::function<void(QlgObject*)> run;
    std::string want;
  } cases[] = {
      {"sub/dir/once.log", {}, nullptr, /* one head, one tail, directories made */
       [](QlgObject* h) { log(h, {"a", "b"}); close(h); close(h); }, "HEAD\na\nb\nTAIL\n"},
      {"change.log", {}, nullptr, /* closed by a change, but not of logInternalErrs or an absent permission */
       [](QlgObject* h) {
         log(h, {"one"});
         h->cls->propertyChanged(h, "filePermission");
         QlgObject_storeProperty(h, "logInternalErrs", "false");
         QlgObject_storeProperty(h, "maxFiles", "4");
         log(h, {"two"});
       },
       "HEAD\none\nTAIL\nHEAD\ntwo\n"},
      {"append.log", {}, "old\n", [](QlgObject* h) { log(h, {"x"}); }, "old\nHEAD\nx\n"},
      /* present between records however its name is spelt: a backslash is an
         ordinary character on POSIX systems and a separator on Windows (so
         "bs" is made for it there) */
      {"bs\\x.log", {}, nullptr,
       [&](QlgObject* h) {
         std::filesystem::create_directory(dir_.file("bs"));
         log(h, {"a", "b", "c"});
       },
       "HEAD\na\nb\nc\n"},
      {"truncate.log", {{"appending", "false"}}, "old\n", [](QlgObject* h) { log(h, {"y"}); },
       "HEAD\ny\n"},
      {"unknown-codeset.log", {{"fileEncoding", "NO-SUCH"}}, nullptr,
       [](QlgObject* h) { log(h, {"gr\xC3\xBC\xC3\x9F"}); }, "HEAD\ngr\xC3\xBC\xC3\x9F\n"},
      {"disabled.log", {{"listenerNames", rec}}, nullptr, /* nothing written, listeners reached only while enabled */
       [](QlgObject* h) {
         log(h, {"passed"});
         QlgObject_storeProperty(h, "logging", "off");
         log(h, {"silenced"});
         EXPECT_EQ(seenList(), "passed;");
       },
       "HEAD\npassed\nTAIL\n"}};
  for (auto& c : cases) {
    SCOPED_TRACE(c.file);
    if (c.existing) dir_.write(c.file, c.existing);
    CaptureFd err(2);
    Props props = c.props;
    props.insert(props.begin(), {"fileName", dir_.file(c.file)});
    c.run(handler(props, true));
    EXPECT_EQ(readFile(dir_.file(c.file)), c.want);
  }
}

/* ---- rollover ---- */

/* Backups are shifted and the oldest dropped; a file exceeds the limit by
   at most one record; maxFiles 1 never rolls over; a file found at the
   limit is rolled over when opened. */
TEST_F(FileHandlerTest, RolloverKeepsTheNumberedBackupsAsConfigured) {
  const std::string absent = kAbsent, z4 = std::string(4, 'z') + "\n";
  std::string lim;
  for (int i = 0; i < 4; i++) lim += std::string(30, 'z') + "\n";
  const RollCase cases[] = {
      /* HEAD\n + r1\n + r2\n = 11 bytes: the third record rolls over first. */
      {{{"maxFiles", "3"}, {"maxFileBytes", "10"}}, nullptr, {"r1", "r2", "r3", "r4", "r5", "r6", "r7", "r8"},
       {{"", "HEAD\nr7\nr8\n"}, {"1", "HEAD\nr5\nr6\nTAIL\n"}, {"2", "HEAD\nr3\nr4\nTAIL\n"}, {"3", absent}}},
      {{{"maxFiles", "50"}, {"maxFileBytes", "100"}}, nullptr, std::vector<std::string>(40, std::string(30, 'z')),
       {{"", "HEAD\n" + lim}, {"1", "HEAD\n" + lim + "TAIL\n"}, {"9", "HEAD\n" + lim + "TAIL\n"}, {"10", absent}}},
      {{{"maxFiles", "1"}, {"maxFileBytes", "5"}}, nullptr, std::vector<std::string>(3, "zzzz"),
       {{"", "HEAD\n" + z4 + z4 + z4}, {"1", absent}}},
      {{{"maxFileBytes", "20"}}, "oooooooooooooooooooo", {"fresh"},
       {{"", "HEAD\nfresh\n"}, {"1", std::string(20, 'o') + "TAIL\n"}}}};
  int n = 0;
  for (const auto& c : cases) {
    std::string base = "roll" + std::to_string(++n) + "_";
    SCOPED_TRACE(base);
    log(handler(rollProps(c, base), true), c.records);
    expectFiles(c, base);
  }
}

/* ---- robustness ---- */

TEST_F(FileHandlerTest, NullArgumentsAndForeignObjectsAreIgnoredByBothClasses) {
  QlgFileHandler_publish(nullptr, nullptr);
  QlgMPFileHandler_publish(nullptr, nullptr);
  QlgFileHandler_open(nullptr);
  QlgMPFileHandler_open(nullptr);
  QlgFileHandler_close(nullptr);
  QlgMPFileHandler_close(nullptr);
  QlgFileHandler_propertyChanged(nullptr, "fileName");
  QlgFileHandler_setFileName("x.log", nullptr);
  QlgFileHandler_rollover(nullptr);
  QlgMPFileHandler_rollover(nullptr);
  QlgMPFileHandler_copyTruncate(nullptr);
  QlgFileHandler_destroy(nullptr);
  QlgObject* rec = make("test_recorder");
  EXPECT_EQ(QlgFileHandler_data(rec), nullptr);
  QlgFileHandler_open(rec);
  for (const char* cls : {"qlg_filehandler", "qlg_multiproc_filehandler"}) {
    QlgObject* h = handler({{"fileName", dir_.file(std::string(cls) + ".log")}}, false, cls);
    h->cls->propertyChanged(h, nullptr);
    h->cls->slots.handler.publish(h, nullptr);
    EXPECT_EQ(QlgFileHandler_data(h)->isOpen, 0);
    EXPECT_FALSE(exists(dir_.file(std::string(cls) + ".log")));
  }
}

TEST(FileHandlerMemory, EveryAllocationFailureInCreateGivesNullWithoutLeaks) {
  void* d = nullptr;
  ardeltest::sweepAllocations([&] { QlgFileHandler_destroy(d); }, [&] { d = QlgFileHandler_create(); },
                              [&](long) { EXPECT_EQ(d, nullptr) << "a half-built name must not yield a handler"; });
}

}  // namespace
