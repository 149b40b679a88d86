// qlg_filehandler: how a configured name becomes a path, the properties and
// their checks, head/record/tail placement, size-based rollover, recreation
// of a removed file, and recovery from file-system faults (a directory that
// cannot be made, a path that cannot be opened, a full device).
#include <gtest/gtest.h>

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <ardel/QlgEvent.h>
#include <ardel/QlgHandler.h>
#include <ardel/QlgMem.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "handlers/QlgFileHandler.h"
#include "support/Recorder.h"
#include "support/TestSupport.h"
#include "util/QlgMemTest.h"

#define EXPECT_HAS(text, needle) EXPECT_NE((text).find(needle), std::string::npos) << (text)

namespace {

using ardeltest::CaptureFd;
using ardeltest::readFile;
using ardeltest::TempDir;
using Props = std::vector<std::pair<std::string, std::string>>;

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

std::string cwd() {
  char buf[4096];
  return getcwd(buf, sizeof buf) ? buf : "";
}

class FileHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    QlgClass_registerFormatter("test_fh_bare", nullptr, nullptr, nullptr, nullptr,
                               ardeltest::bareMessage, nullptr, nullptr, nullptr);
    QlgClass_registerFormatter("test_fh_headtail", nullptr, nullptr, nullptr, nullptr,
                               ardeltest::bareMessage, ardeltest::headText, ardeltest::tailText, nullptr);
    ardeltest::registerRecorder();
    static int serial = 0;
    prefix_ = "test.fh" + std::to_string(++serial) + ".";
  }
  void TearDown() override {
    for (auto it = objects_.rbegin(); it != objects_.rend(); ++it) QlgObject_release(*it);
  }

  QlgObject* make(const std::string& name, const char* cls) {
    QlgObject* obj = QlgObject_create((prefix_ + name).c_str(), cls);
    EXPECT_NE(obj, nullptr) << name;
    if (obj) objects_.push_back(obj);
    return obj;
  }
  // A file handler with a bare (or head/tail) formatter and the given properties, in order.
  QlgObject* handler(const Props& props, bool headTail = false) {
    QlgObject* h = make("h" + std::to_string(objects_.size()), "qlg_filehandler");
    QlgHandler_setFormatter(h, make("f" + std::to_string(objects_.size()),
                                    headTail ? "test_fh_headtail" : "test_fh_bare"));
    for (const auto& p : props) QlgObject_storeProperty(h, p.first.c_str(), p.second.c_str());
    return h;
  }
  static QlgFileHandlerData* data(QlgObject* h) { return QlgFileHandler_data(h); }
  static std::string path(QlgObject* h) { return data(h)->path ? data(h)->path : "(null)"; }
  static void log(QlgObject* h, const std::vector<std::string>& texts) {
    for (const auto& text : texts) {
      QlgEvent* e = QlgEvent_createTagged(3000, nullptr, 0, 0, text.c_str(), 0);
      ASSERT_NE(e, nullptr);
      h->cls->slots.handler.publish(h, e);
      QlgEvent_free(e);
    }
  }
  static void close(QlgObject* h) { h->cls->slots.handler.close(h); }

  TempDir dir_;
  std::string prefix_;
  std::vector<QlgObject*> objects_;
};

// ---- names and paths ----

TEST(FileHandlerPath, ComposedPathIsDirectorySlashBaseNumberDotExtension) {
  struct { const char *dir, *base; int n; const char *ext, *want; } cases[] = {
      {"/logs", "/trace", 2, "log", "/logs//trace2.log"}, {"/logs", "trace", 0, "log", "/logs/trace.log"},
      {"/logs", "trace", 0, nullptr, "/logs/trace"},      {"/logs", "trace", 12, nullptr, "/logs/trace12"},
      {"/logs", nullptr, 1, "log", "(null)"}};
  for (const auto& c : cases) {
    char* p = QlgFileHandler_composePath(c.dir, c.base, c.n, c.ext);
    EXPECT_EQ(std::string(p ? p : "(null)"), c.want);
    QlgMem_free(p);
  }
}

TEST(FileHandlerPath, NameIsSplitIntoDirectoryBaseNumberAndExtension) {
  QlgFileHandlerData* d = static_cast<QlgFileHandlerData*>(QlgFileHandler_create());
  ASSERT_NE(d, nullptr);
  // An empty directory part means the working directory.
  struct { const char *name, *dir, *base, *ext; int index; std::string path; } cases[] = {
      {"/logs/x.log", "/logs", "/x", "log", 0, "/logs//x.log"},
      {"var/log/trace12.txt", "var/log", "/trace", "txt", 12, "var/log//trace12.txt"},
      {"plain", nullptr, "plain", nullptr, 0, cwd() + "/plain"},
      {"/top.log", nullptr, "/top", "log", 0, cwd() + "//top.log"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    QlgFileHandler_setFileName(c.name, d);
    if (c.dir) { EXPECT_STREQ(d->directory, c.dir); }
    EXPECT_STREQ(d->baseName, c.base);
    EXPECT_STREQ(d->extension, c.ext);
    if (c.index) { EXPECT_EQ(d->index, c.index); }
    EXPECT_EQ(std::string(d->path ? d->path : "(null)"), c.path);
  }
  QlgFileHandler_destroy(d);
}

TEST_F(FileHandlerTest, RejectedNamesAreReportedAndLeaveNoPath) {
  QlgFileHandlerData* d = static_cast<QlgFileHandlerData*>(QlgFileHandler_create());
  ASSERT_NE(d, nullptr);
  CaptureFd err(2);
  QlgFileHandler_setFileName(nullptr, d);
  EXPECT_EQ(d->path, nullptr);
  QlgFileHandler_setFileName(std::string(261, 'a').c_str(), d);
  EXPECT_EQ(d->path, nullptr);
  QlgFileHandler_setFileName(std::string(260, 'a').c_str(), d);
  EXPECT_NE(d->path, nullptr) << "260 characters are still accepted";
  d->logInternalErrs = 0;
  QlgFileHandler_setFileName(nullptr, d);
  std::string text = err.text();
  EXPECT_HAS(text, "QLGBC0030E A value must be specified for the property 'fileName'");
  EXPECT_HAS(text, "QLGBC0031E Property 'fileName' must be 260 characters or less.");
  EXPECT_EQ(text.find("QLGBC0030E"), text.rfind("QLGBC0030E")) << "silenced when logInternalErrs is off";
  QlgFileHandler_destroy(d);
}

TEST_F(FileHandlerTest, ConfiguredNameEndingInADigitGetsAnUnderscore) {
  // Only the digit before the last dot counts.
  for (auto c : {std::make_pair("trace3.log", "trace3_.log"), std::make_pair("123", "123_"),
                 std::make_pair("log2.x.txt", "log2.x.txt")})
    EXPECT_EQ(path(handler({{"fileName", dir_.file(c.first)}})), dir_.path() + "//" + c.second);
}

TEST_F(FileHandlerTest, EmptyFileNameIsReportedAndFallsBackToDefaultLog) {
  CaptureFd err(2);
  EXPECT_EQ(path(handler({{"fileName", ""}})), cwd() + "/default.log");
  EXPECT_HAS(err.text(), "QLGBC04E Property 'fileName' will be ignored for '" + prefix_ + "h0'");
}

// ---- properties ----

TEST_F(FileHandlerTest, SizeAndCountChecksWarnAndStoreTheirFallbacks) {
  CaptureFd err(2);
  QlgObject* h = handler({{"maxFiles", "0"}, {"maxFileBytes", "-5"}});
  EXPECT_EQ(data(h)->maxFiles, 3);
  EXPECT_EQ(data(h)->maxFileSize, 1024);
  EXPECT_EQ(data(handler({{"maxFiles", "1"}, {"maxFileBytes", "500"}}))->maxFileSize, 500)
      << "stored although it has no effect";
  EXPECT_EQ(data(handler({{"maxFileSize", "abc"}}))->maxFileSize, 1024);
  std::string text = err.text(), n0 = prefix_ + "h0", n2 = prefix_ + "h2";
  // "%2d" in the stored text is a width of two, not a position.
  EXPECT_HAS(text, "QLGFH0077W Property 'maxFiles' will be ignored for file handler " + n0 +
                       ", because the value  0 is not greater than zero.");
  EXPECT_HAS(text, "QLGFH0078W Property 'maxFileBytes' will be ignored for file handler '" + n0 +
                       "', because the value -5 is not greater than zero.");
  EXPECT_HAS(text, "QLGFH0079W Property 'maxFileBytes' will be ignored for file handler '" + n2 +
                       "', because property 'maxFiles' is set to 1.");
}

TEST_F(FileHandlerTest, PermissionsParseAsOctalGiveTheNewFileItsModeAndBadMasksKeepTheOldValue) {
  CaptureFd err(2);
  QlgObject* h = handler({{"fileName", dir_.file("perm.log")}, {"filePermission", "0604"}, {"dirPermission", "0700"}});
  EXPECT_EQ(data(h)->dirPermission, 0700u);
  mode_t old = umask(0);
  log(h, {"x"});
  umask(old);
  struct stat st;
  ASSERT_EQ(stat(dir_.file("perm.log").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0604u);
  QlgObject_storeProperty(h, "filePermission", "rw-r");
  EXPECT_EQ(data(h)->filePermission, 0604u);
  EXPECT_HAS(err.text(), "QLGMP0074W The value rw-r is not a valid file permission mask for file handler " +
                             prefix_ + "h0.");
}

TEST_F(FileHandlerTest, PropertyChangeClosesTheFileExceptLogInternalErrsAndAbsentPermissions) {
  QlgObject* h = handler({{"fileName", dir_.file("c.log")}}, true);
  log(h, {"one"});
  ASSERT_EQ(data(h)->isOpen, 1);
  h->cls->propertyChanged(h, "filePermission"); /* absent: nothing happens */
  EXPECT_EQ(data(h)->isOpen, 1);
  QlgObject_storeProperty(h, "logInternalErrs", "false");
  EXPECT_EQ(data(h)->isOpen, 1);
  QlgObject_storeProperty(h, "maxFiles", "4");
  EXPECT_EQ(data(h)->isOpen, 0);
  log(h, {"two"});
  EXPECT_EQ(readFile(dir_.file("c.log")), "HEAD\none\nTAIL\nHEAD\ntwo\n");
}

TEST_F(FileHandlerTest, LogInternalErrsFollowsTheAppendingProperty) {
  CaptureFd err(2);
  QlgObject* h = handler({{"appending", "false"}, {"logInternalErrs", "true"}});
  EXPECT_EQ(data(h)->logInternalErrs, 0) << "the flag takes the value of appending";
  QlgObject_storeProperty(h, "maxFiles", "-1");
  EXPECT_EQ(data(handler({{"logInternalErrs", "false"}}))->logInternalErrs, 1) << "appending absent reads as true";
  EXPECT_EQ(err.text().find("QLGFH0077W"), std::string::npos);
}

TEST_F(FileHandlerTest, UnknownEncodingWarnsAndWritesUtf8) {
  CaptureFd err(2);
  QlgObject* h = handler({{"fileName", dir_.file("enc.log")}, {"fileEncoding", "NO-SUCH-CODESET"}});
  EXPECT_EQ(data(h)->converter, nullptr);
  log(h, {"gr\xC3\xBC\xC3\x9F"});
  EXPECT_HAS(err.text(), "QLGFH0036W Could not load codeset NO-SUCH-CODESET.");
  QlgObject_storeProperty(h, "fileEncoding", "utf8");
  EXPECT_NE(data(h)->converter, nullptr);
  log(h, {"x"});
  EXPECT_EQ(readFile(dir_.file("enc.log")), "gr\xC3\xBC\xC3\x9F\nx\n");
}

TEST_F(FileHandlerTest, SemKeyIsStoredAsRead) {
  QlgObject* h = handler({{"MPFileSemKey", "4660"}});
  EXPECT_EQ(data(h)->semKey, 4660);
  QlgObject_storeProperty(h, "MPFileSemKey", "none");
  EXPECT_EQ(data(h)->semKey, 0);
}

// ---- writing ----

TEST_F(FileHandlerTest, HeadOnceBeforeTheFirstRecordAndTailAtClose) {
  QlgObject* h = handler({{"fileName", dir_.file("sub/dir/ht.log")}}, true);
  log(h, {"a", "b"});
  EXPECT_EQ(readFile(dir_.file("sub/dir/ht.log")), "HEAD\na\nb\n") << "missing directories are created";
  close(h);
  close(h);
  EXPECT_EQ(readFile(dir_.file("sub/dir/ht.log")), "HEAD\na\nb\nTAIL\n") << "one tail, only while open";
}

TEST_F(FileHandlerTest, AppendingKeepsAndNonAppendingTruncatesAnExistingFile) {
  dir_.write("app.log", "old\n");
  dir_.write("new.log", "old\n");
  log(handler({{"fileName", dir_.file("app.log")}}), {"x"});
  log(handler({{"fileName", dir_.file("new.log")}, {"appending", "false"}}), {"y"});
  EXPECT_EQ(readFile(dir_.file("app.log")), "old\nx\n");
  EXPECT_EQ(readFile(dir_.file("new.log")), "y\n");
}

TEST_F(FileHandlerTest, DisabledHandlerWritesNothingAndEventsReachChainedListeners) {
  QlgObject* h = handler({{"fileName", dir_.file("chain.log")}});
  QlgObject_addListener(h, make("rec", "test_recorder"));
  ardeltest::seen().clear();
  log(h, {"passed"});
  ASSERT_EQ(ardeltest::seen().size(), 1u);
  EXPECT_EQ(ardeltest::seen()[0].text, "passed");
  QlgObject_storeProperty(h, "logging", "off");
  log(h, {"silenced"});
  EXPECT_EQ(readFile(dir_.file("chain.log")), "passed\n");
  EXPECT_EQ(ardeltest::seen().size(), 1u);
}

// ---- rollover ----

TEST_F(FileHandlerTest, RolloverShiftsBackupsAndDropsTheOldest) {
  QlgObject* h = handler({{"fileName", dir_.file("app.log")}, {"maxFiles", "3"}, {"maxFileBytes", "10"}}, true);
  // HEAD\n + r1\n + r2\n = 11 bytes: the third record rolls over first.
  log(h, {"r1", "r2", "r3", "r4", "r5", "r6", "r7", "r8"});
  EXPECT_EQ(readFile(dir_.file("app.log")), "HEAD\nr7\nr8\n");
  EXPECT_EQ(readFile(dir_.file("app1.log")), "HEAD\nr5\nr6\nTAIL\n");
  EXPECT_EQ(readFile(dir_.file("app2.log")), "HEAD\nr3\nr4\nTAIL\n");
  EXPECT_FALSE(exists(dir_.file("app3.log"))) << "maxFiles 3 keeps two backups";
}

TEST_F(FileHandlerTest, FileExceedsTheLimitByAtMostOneRecord) {
  QlgObject* h = handler({{"fileName", dir_.file("lim.log")}, {"maxFiles", "50"}, {"maxFileBytes", "100"}});
  log(h, std::vector<std::string>(40, std::string(30, 'z')));
  for (int k = 0; k < 50; k++) {
    std::string name = dir_.file(k ? "lim" + std::to_string(k) + ".log" : "lim.log");
    if (exists(name)) { EXPECT_LE(readFile(name).size(), 100u + 31u) << name; }
  }
  EXPECT_EQ(readFile(dir_.file("lim1.log")).size(), 124u) << "four records: 93 bytes < 100, the fourth tips it";
}

// The rollover test reads the file's own size, so a file emptied in place by
// another program (as copy-and-truncate rotation does) starts over.
TEST_F(FileHandlerTest, RolloverTestUsesTheSizeReadFromTheFile) {
  QlgObject* h = handler({{"fileName", dir_.file("cut.log")}, {"maxFileBytes", "10"}});
  log(h, {std::string(12, 'a')});
  ASSERT_EQ(truncate(dir_.file("cut.log").c_str(), 0), 0);
  usleep(1100 * 1000);
  log(h, {"b"});
  EXPECT_FALSE(exists(dir_.file("cut1.log"))) << "an emptied file is not rolled over";
  log(h, {std::string(12, 'c'), "d"});
  EXPECT_EQ(readFile(dir_.file("cut1.log")), "b\n" + std::string(12, 'c') + "\n");
  EXPECT_EQ(readFile(dir_.file("cut.log")), "d\n");
}

TEST_F(FileHandlerTest, WithOneFileNoRolloverHappens) {
  log(handler({{"fileName", dir_.file("one.log")}, {"maxFiles", "1"}, {"maxFileBytes", "5"}}),
      std::vector<std::string>(10, "0123456789"));
  EXPECT_EQ(readFile(dir_.file("one.log")).size(), 110u);
  EXPECT_FALSE(exists(dir_.file("one1.log")));
}

TEST_F(FileHandlerTest, ExistingFileAtTheLimitIsRolledOverWhenOpened) {
  dir_.write("full.log", std::string(20, 'o'));
  log(handler({{"fileName", dir_.file("full.log")}, {"maxFileBytes", "20"}}, true), {"fresh"});
  EXPECT_EQ(readFile(dir_.file("full1.log")), std::string(20, 'o') + "TAIL\n");
  EXPECT_EQ(readFile(dir_.file("full.log")), "HEAD\nfresh\n");
}

// ---- removal and faults ----

TEST_F(FileHandlerTest, FileRemovedOrMovedWhileOpenIsCreatedAgainWithItsHead) {
  QlgObject* h = handler({{"fileName", dir_.file("gone.log")}}, true);
  log(h, {"a"});
  ASSERT_EQ(unlink(dir_.file("gone.log").c_str()), 0);
  log(h, {"b"});
  EXPECT_EQ(readFile(dir_.file("gone.log")), "HEAD\nb\n");
  ASSERT_EQ(rename(dir_.file("gone.log").c_str(), dir_.file("moved.log").c_str()), 0);
  log(h, {"c"});
  EXPECT_EQ(readFile(dir_.file("gone.log")), "HEAD\nc\n");
  EXPECT_EQ(readFile(dir_.file("moved.log")), "HEAD\nb\n");
}

// The file must count as present between records however its name is spelt:
// a name of the full 260 characters composes to a longer path (the base name
// keeps its separator), and a backslash is an ordinary character here.
TEST_F(FileHandlerTest, LongestAcceptedNameAndBackslashNameAreOpenedOnceWithOneHead) {
  std::string middle(260 - dir_.path().size() - 1 - 7, 'd');
  for (size_t i = 100; i + 1 < middle.size(); i += 101) middle[i] = '/';
  for (const std::string& name : {dir_.path() + "/" + middle + "/lp.log", dir_.file("bs\\x.log")}) {
    SCOPED_TRACE(name);
    QlgObject* h = handler({{"fileName", name}}, true);
    ASSERT_NE(data(h)->path, nullptr);
    log(h, {"a", "b", "c"});
    EXPECT_EQ(readFile(path(h)), "HEAD\na\nb\nc\n");
  }
}

// A blocked path is reported and the record lost; once the blocker is gone
// the next record opens the file again.
TEST_F(FileHandlerTest, BlockedDirectoryOrPathIsReportedAndRetriedOnTheNextRecord) {
  std::string blocker = dir_.file("file.txt"), busy = dir_.file("busy.log");
  struct {
    std::string name, written;
    std::function<void()> block, unblock;
    std::vector<std::string> reports;
  } cases[] = {
      {blocker + "/sub/x.log", blocker + "/sub//x.log", [&] { dir_.write("file.txt", "not a directory"); },
       [&] { ASSERT_EQ(unlink(blocker.c_str()), 0); },
       {"QLGFH0032E Property 'fileName' must be a valid file path for this platform, but value '" + blocker +
            "/sub' was given.",
        strerror(ENOTDIR)}},
      {busy, busy, [&] { ASSERT_EQ(mkdir(busy.c_str(), 0700), 0); },
       [&] { ASSERT_EQ(rmdir(busy.c_str()), 0); }, {strerror(EISDIR)}}};
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    c.block();
    QlgObject* h = handler({{"fileName", c.name}});
    {
      CaptureFd err(2);
      log(h, {"lost"});
      std::string text = err.text();
      for (const auto& r : c.reports) EXPECT_HAS(text, r);
    }
    EXPECT_EQ(data(h)->isOpen, 0);
    c.unblock();
    log(h, {"kept"});
    EXPECT_EQ(readFile(c.written), "kept\n");
  }
}

TEST_F(FileHandlerTest, FullDeviceIsReportedAndWritingResumesWhenThereIsRoomAgain) {
  std::string path = dir_.file("full.log");
  ardeltest::inChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    QlgObject* h = handler({{"fileName", path}, {"maxFiles", "1"}});
    struct rlimit lim;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &lim), 0);
    struct rlimit small = lim;
    small.rlim_cur = 16;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    // A pipe, not a file: the size limit would cut a captured file too.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    fflush(stderr);
    int saved = dup(2);
    dup2(fds[1], 2);
    ::close(fds[1]);
    log(h, {"0123456789", "abcdefghij", "ABCDEFGHIJ"}); /* 11 bytes fit, the second is cut at 16, then nothing */
    fflush(stderr);
    dup2(saved, 2);
    ::close(saved);
    char buf[8192];
    ssize_t n = read(fds[0], buf, sizeof buf);
    ::close(fds[0]);
    std::string text(buf, n > 0 ? (size_t)n : 0);
    size_t first = text.find(strerror(EFBIG));
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(strerror(EFBIG), first + 1), std::string::npos) << "each failed write is reported";
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
    log(h, {"room again"});
    EXPECT_EQ(readFile(path), "0123456789\nabcderoom again\n");
  });
}

// ---- robustness ----

TEST_F(FileHandlerTest, NullArgumentsAndForeignObjectsAreIgnored) {
  QlgFileHandler_publish(nullptr, nullptr);
  QlgFileHandler_open(nullptr);
  QlgFileHandler_close(nullptr);
  QlgFileHandler_propertyChanged(nullptr, "fileName");
  QlgFileHandler_setFileName("x.log", nullptr);
  QlgFileHandler_rollover(nullptr);
  QlgFileHandler_destroy(nullptr);
  QlgObject* rec = make("notafile", "test_recorder");
  EXPECT_EQ(QlgFileHandler_data(rec), nullptr);
  QlgFileHandler_open(rec);
  QlgObject* h = handler({{"fileName", dir_.file("n.log")}});
  h->cls->propertyChanged(h, nullptr);
  QlgFileHandler_publish(h, nullptr);
  EXPECT_EQ(QlgFileHandler_data(h)->isOpen, 0);
  EXPECT_FALSE(exists(dir_.file("n.log")));
}

TEST(FileHandlerMemory, EveryAllocationFailureInCreateGivesNullWithoutLeaks) {
  QlgMem_failAt(0);
  void* d = QlgFileHandler_create();
  long n = QlgMem_allocCount();
  ASSERT_NE(d, nullptr);
  QlgFileHandler_destroy(d);
  for (long i = 1; i <= n; i++) {
    QlgMem_failAt(i);
    void* r = QlgFileHandler_create();
    EXPECT_TRUE(QlgMem_failed()) << i;
    EXPECT_EQ(r, nullptr) << "a half-built name must not yield a handler: " << i;
    QlgFileHandler_destroy(r);
  }
  QlgMem_failAt(0);
}

}  // namespace
