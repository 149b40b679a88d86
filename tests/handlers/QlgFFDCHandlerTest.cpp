// SPDX-License-Identifier: Apache-2.0
// The FFDC handlers: trigger test with repeat time, one dated directory per
// event, the quota policies and the auto-delete order, copy mode and zip
// mode with the real zip (archives read back with unzip), the bounded zip
// run, and that nothing outside the base directory is ever written or
// deleted, whatever the configuration names or the tree holds.
#include <cstring>
#include <filesystem>

#include "handlers/HandlerHarness.h"
#include "handlers/QlgFFDCTriggerHandler.h"
#include "handlers/QlgFileCopyHandler.h"

namespace {

using namespace htest;

const int64_t kTime = 1700000000000;  /* the events' time */
const char kZip[] = "/usr/bin/zip";

bool exists(const std::string& p) { struct stat st; return lstat(p.c_str(), &st) == 0; }
QlgEvent* event(int level, int64_t t) {
  QlgEvent* e = QlgEvent_createTagged(level, nullptr, 0, 0, "boom", 0);
  e->time = t;
  return e;
}
// What the shell command cmd writes to standard output.
std::string run(const std::string& cmd, const TempDir& dir) {
  return std::system(("(" + cmd + ") > '" + dir.file("run.out") + "'").c_str()) == 0 ? readFile(dir.file("run.out")) : "";
}
void setAge(const std::string& path, time_t secondsAgo) {
  struct timespec t[2] = {{time(nullptr) - secondsAgo, 0}, {time(nullptr) - secondsAgo, 0}};
  utimensat(AT_FDCWD, path.c_str(), t, AT_SYMLINK_NOFOLLOW);
}

class FFDCTest : public htest::HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    base = dir.file("ffdc");
    make("test_recorder", {}, "rec");
    make("qlg_levelfilter", {{"level", "ERROR"}}, "errors");
    // Source files: a binary one, a text one.
    src1 = dir.write("a.bin", std::string("\0\x01\xff zip\r\n", 9) + std::string(3000, 'x'));
    src2 = dir.write("b.log", "second file\n");
    time_t s = (time_t)(kTime / 1000);
    struct tm tm;
    char buf[16];
    strftime(buf, sizeof buf, "%Y.%m.%d", localtime_r(&s, &tm));
    day = base + "/" + buf;
  }
  QlgObject* handler(const char* cls, Props props) {
    props.insert(props.begin(), {{"baseDir", base}, {"triggerFilter", prefix_ + "errors"}, {"listenerNames", prefix_ + "rec"}});
    return make(cls, props);
  }
  QlgObject* copier(const Props& props) { return handler("qlg_ffdc_filecopy_handler", props); }
  // Publishes one event; what the toolkit reported on standard error.
  static std::string publish(QlgObject* h, int level = 6000) {
    return ardeltest::stderrOf([&] { htest::publish(h, level, "boom", [](QlgEvent* e) { e->time = kTime; }); });
  }
  TempDir dir;
  std::string base, day, src1, src2;
};

TEST_F(FFDCTest, PropertiesAcceptOnlyTheirDocumentedValues) {
  const char* cases[][3] = {  // key, value, then maxDiskSpace firstWarning quotaPolicy zipFileName
      {"maxDiskSpace", "0", "10485760 0.75 QUOTA_AUTODELETE old.zip"}, {"maxDiskSpace", "4096", "4096 0.75 QUOTA_AUTODELETE old.zip"},
      {"firstWarning", "1", "10485760 0.75 QUOTA_AUTODELETE old.zip"}, {"firstWarning", "0", "10485760 0.75 QUOTA_AUTODELETE old.zip"},
      {"firstWarning", "0.5", "10485760 0.5 QUOTA_AUTODELETE old.zip"}, {"quotaPolicy", "quota_ignore", "10485760 0.75 QUOTA_AUTODELETE old.zip"},
      {"quotaPolicy", "QUOTA_SUSPEND", "10485760 0.75 QUOTA_SUSPEND old.zip"}, {"zipFileName", "trace", "10485760 0.75 QUOTA_AUTODELETE trace.zip"},
      {"zipFileName", "trace.zip", "10485760 0.75 QUOTA_AUTODELETE trace.zip"}, {"zipFileName", "", "10485760 0.75 QUOTA_AUTODELETE -"}};
  for (const auto& c : cases) {
    QlgFFDCTriggerData* d = QlgFFDCTrigger_data(copier({{"zipFileName", "old"}, {c[0], c[1]}}));
    std::ostringstream got;
    got << d->maxDiskSpace << " " << d->firstWarning << " " << d->quotaPolicy << " " << (d->fileCopy->zipFileName ? d->fileCopy->zipFileName : "-");
    EXPECT_EQ(got.str(), c[2]) << c[0] << "=" << c[1];
  }
}

TEST_F(FFDCTest, ZipCommandWithShellCharactersOrMissingIsRejectedAndPreviousKept) {
  const char* bad[] = {"/usr/bin/zip;rm", "/usr/bin/zip&", "/usr/bin/zip|x", "/no/such/zip", "$(zip)"};
  for (const char* value : bad) {
    QlgObject* h = copier({{"zipCmdPath", kZip}});
    EXPECT_EQ(count(ardeltest::stderrOf([&] { QlgObject_storeProperty(h, "zipCmdPath", value); }), "QLGFF0065E"), 1u) << value;
    EXPECT_STREQ(QlgFFDCTrigger_data(h)->fileCopy->zipCmdPath, kZip) << value;
  }
}

TEST_F(FFDCTest, StartReportsMissingFilterAndBaseDirOnce) {
  QlgObject* h = make("qlg_ffdc_filecopy_handler");
  std::string first = publish(h);
  EXPECT_TRUE(count(first, "QLGFF0011E") == 1 && count(first, "QLGFF0012E") == 1) << first;
  EXPECT_EQ(publish(h), "");
  EXPECT_EQ(ardeltest::seen().size(), 0u);  /* no listeners configured */
}

TEST_F(FFDCTest, TriggerFollowsFilterAndRepeatTime) {
  // Event (level, time) -> triggered; repeat time 60000 ms.
  struct { int level; int64_t t; int want; } events[] = {
      {6000, 1000, 1}, {6000, 30000, 0}, {5000, 70000, 0}, {6000, 61000, 0}, {6000, 61001, 1},
      {6000, 61001, 0}, {6000, 121002, 1}};
  QlgObject* h = handler("qlg_ffdc_trigger_handler", {{"triggerRepeatTime", "60000"}});
  h->cls->slots.handler.open(h);
  for (const auto& e : events) {
    QlgEvent* ev = event(e.level, e.t);
    EXPECT_EQ(QlgFFDCTrigger_isTriggered(h, ev), e.want) << e.level << "@" << e.t;
    EXPECT_EQ(QlgFFDCTrigger_isTriggered(nullptr, ev) + QlgFFDCTrigger_isTriggered(h, nullptr), 0);
    QlgEvent_free(ev);
  }
}

TEST_F(FFDCTest, OneDatedDirectoryPerEventSharedByAllActions) {
  QlgObject* h = handler("qlg_ffdc_trigger_handler", {});
  h->cls->slots.handler.open(h);
  QlgEvent* ev = event(6000, kTime);
  char* first = QlgFFDCTrigger_getFFDCDir(h, ev);
  char* again = QlgFFDCTrigger_getFFDCDir(h, ev);
  EXPECT_EQ(std::string(first ? first : ""), day + "/");
  EXPECT_STREQ(again, first);
  EXPECT_TRUE(exists(day));
  // An "ffdcDir" pointing outside the tree is not followed.
  QlgEvent_addStringProperty(ev, QLG_PROP_FFDCDIR, (base + "/../elsewhere/").c_str());
  char* third = QlgFFDCTrigger_getFFDCDir(h, ev);
  EXPECT_STREQ(third, first);
  // Nor a link planted inside it.
  symlink(dir.path().c_str(), (base + "/planted").c_str());
  QlgEvent_addStringProperty(ev, QLG_PROP_FFDCDIR, (base + "/planted/").c_str());
  char* fourth = QlgFFDCTrigger_getFFDCDir(h, ev);
  EXPECT_STREQ(fourth, first);
  for (char* s : {first, again, third, fourth}) QlgMem_free(s);
  QlgEvent_free(ev);
}

// Copy mode, zip mode with the real zip (the archive read back with unzip),
// and zip commands that make no archive or hang (ended after zipTimeout):
// the present files captured byte for byte, each missing file and each
// failed zip reported once, and the event passed on every time.
TEST_F(FFDCTest, CopyAndZipModesCaptureThePresentFilesAndReportEachFailure) {
  std::string hang = dir.write("hang.sh", "#!/bin/sh\nexec sleep 30\n"), archive = day + "/z1.zip";
  chmod(hang.c_str(), 0700);
  struct { std::string zip; std::vector<std::string> reports; } cases[] = {
      {"", {"QLGFF0062W"}}, {kZip, {"QLGFF0062W"}}, {"/bin/true", {"QLGFF0062W", "QLGFF0064E"}},
      {hang, {"QLGFF0062W", "QLGFF0064E", "timed out"}}};
  QlgObject* h = nullptr;
  for (const auto& c : cases) {
    int i = (int)(&c - cases);
    Props props = {{"filesToCopy", src1 + " " + dir.file("missing.txt") + " " + src2}};
    if (i > 0) props.insert(props.end(), {{"zipFileName", "z" + std::to_string(i)}, {"zipCmdPath", c.zip}});
    if (i > 1) props.push_back({"zipTimeout", "200"});
    if (i == 0) {  // a copy left by an interrupted capture is cleared away, not in the way
      std::filesystem::create_directories(day);
      ardeltest::writeFile(day + "/.ardel-ffdc-copy", "left over");
    }
    std::string err = publish(h = copier(props));
    for (const auto& r : c.reports) EXPECT_EQ(count(err, r), 1u) << c.zip << ": " << r << "\n" << err;
    if (i > 1) continue;
    EXPECT_EQ(i ? run("unzip -Z1 '" + archive + "'; unzip -p '" + archive + "' a.bin; unzip -p '" + archive + "' b.log", dir)
                : "a.bin\nb.log\n" + readFile(day + "/a.bin") + readFile(day + "/b.log"), "a.bin\nb.log\n" + readFile(src1) + readFile(src2));
  }
  EXPECT_EQ(publish(h, 5000), "");  /* not accepted by the filter: no capture, still forwarded */
  EXPECT_EQ(seen().size(), 5u);
}

TEST_F(FFDCTest, QuotaPoliciesWithSmallLimit) {
  // 1200 bytes in the tree, limit 1000, first warning at 500, 12 bytes needed.
  // Messages 160 and 154 print the maximum times 1024, 161 and 155 as it is.
  struct { const char *policy; bool copied; const char *message, *detail; std::vector<bool> left; } cases[] = {
      {"QUOTA_IGNORE", true, "QLGFF0060W", "space, 1024000 bytes. The current space used is 1200",
       {true, true, true}},
      {"QUOTA_SUSPEND", false, "QLGFF0061E", "is 1200 bytes and the", {true, true, true}},
      // Newest first: the two most recent go, the oldest stays.
      {"QUOTA_AUTODELETE", true, "QLGFF0015I", "space, 1000. This is approximately 700 bytes",
       {true, false, false}}};
  for (const auto& c : cases) {
    std::string old = base + "/2000.01.01";
    mkdir(base.c_str(), 0700);
    mkdir(old.c_str(), 0700);
    for (int i = 0; i < 3; i++) setAge(dir.write("ffdc/2000.01.01/f" + std::to_string(i), std::string(400, 'o')), 3000 - i * 1000);
    QlgObject* h = copier({{"filesToCopy", src2}, {"maxDiskSpace", "1000"}, {"firstWarning", "0.5"},
                           {"quotaPolicy", c.policy}, {"warnOnDiskSpace", "true"}});
    std::string err = publish(h);
    EXPECT_EQ(count(err, c.message), 1u) << c.policy << err;
    EXPECT_EQ(exists(day + "/b.log"), c.copied) << c.policy;
    for (int i = 0; i < 3; i++) EXPECT_EQ(exists(old + "/f" + std::to_string(i)), c.left[i]) << c.policy << i;
    EXPECT_EQ(count(err, c.detail), 1u) << err;
    std::filesystem::remove_all(base);
  }
}

TEST_F(FFDCTest, NothingOutsideTheBaseDirectoryIsWrittenOrDeleted) {
  std::string outside = dir.write("outside.txt", std::string(5000, 's'));
  // Planted in the tree: a link to an outside file under a capture's name,
  // a link to the outside directory, a link where the archive goes.
  mkdir(base.c_str(), 0700);
  mkdir(day.c_str(), 0700);
  std::string real = dir.write("ffdc/real.bin", std::string(400, 'r'));
  symlink(outside.c_str(), (day + "/b.log").c_str());
  symlink(outside.c_str(), (day + "/cap.zip").c_str());
  symlink(dir.path().c_str(), (base + "/2000.01.01").c_str());
  Props props[] = {{{"filesToCopy", src2}, {"maxDiskSpace", "100"}},
                   {{"filesToCopy", src2}, {"zipFileName", "cap"}, {"zipCmdPath", kZip}},
                   {{"filesToCopy", src2}, {"zipFileName", "../up"}, {"zipCmdPath", kZip}},
                   {{"filesToCopy", src2}, {"zipFileName", dir.file("abs")}, {"zipCmdPath", kZip}},
                   {{"filesToCopy", dir.path() + "/.."}}};
  const char* expect[] = {"", "QLGFF0064E", "QLGFF0064E", "QLGFF0064E", "QLGFF0062W"};
  for (size_t i = 0; i < 5; i++) {
    std::string err = publish(copier(props[i]));
    EXPECT_EQ(*expect[i] ? count(err, expect[i]) : err.size(), *expect[i] ? 1u : 0u) << i << err;
  }
  EXPECT_EQ(readFile(outside), std::string(5000, 's'));
  EXPECT_EQ(readFile(day + "/b.log"), readFile(src2));  /* the link was replaced, not followed */
  EXPECT_TRUE(exists(src1) && exists(src2));
  EXPECT_FALSE(exists(real));  /* the quota deleted inside the tree only */
  EXPECT_FALSE(exists(base + "/up.zip") || exists(dir.file("up.zip")) || exists(dir.file("abs.zip")));
  // A link in place of the day's directory stops the capture (QLGFF0013E).
  std::string elsewhere = dir.file("elsewhere");
  mkdir(elsewhere.c_str(), 0700);
  std::filesystem::remove_all(day);
  symlink(elsewhere.c_str(), day.c_str());
  std::string err = publish(copier({{"filesToCopy", src1}}));
  EXPECT_EQ(count(err, "QLGFF0013E"), 1u) << err;
  EXPECT_FALSE(exists(elsewhere + "/a.bin"));
}

}  // namespace
