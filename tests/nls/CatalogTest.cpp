// SPDX-License-Identifier: Apache-2.0
// Message catalogs: lookups in catalogs built by ardel-gencat, damaged files
// falling back to the default texts, the catalog cache, the compiler's
// round trip, and the toolkit's own messages in French.

#include <string.h>

#include <atomic>
#include <thread>

#include <ardel/QlgToolkit.h>
#include "msg/QlgMsgTable.h"
#include "nls/QlgCatalog.h"
#include "nls/QlgCodeset.h"
#include "nls/NlsTestSupport.h"

namespace {

using ardeltest::inChild;
using ardeltest::readFile;
using ardeltest::TempDir;
using nlstest::env;
using nlstest::gencat;

const char* const kDefault = "default";

// Sets 1 (keys 1, 2) and 2 (key 5).  Layout: header 0-27, set records at
// 28 and 56, set 1 index at 84 and texts "un\0deux\0" at 108, set 2 index
// at 116 and text "cinq\0" at 128; 133 bytes.
const char* const kSmall = "$set 1\n1 un\n2 deux\n$set 2\n5 cinq\n";

void put32(std::string* data, size_t at, uint32_t v) {
  for (int i = 0; i < 4; i++) (*data)[at + i] = static_cast<char>(v >> (24 - 8 * i));
}

// Text of (set, key) in the catalog at path, "<closed>" when it is rejected.
std::string lookup(const std::string& path, int set, int key) {
  QlgCatalog* cat = QlgCatalog_openFile(path.c_str(), 0);
  if (!cat) return "<closed>";
  std::string text = QlgCatalog_getMessage(cat, set, key, kDefault, QlgCodeset_utf8());
  QlgCatalog_close(cat);
  return text;
}

TEST(Catalog, DamagedFilesAndSetsGiveTheDefaultTexts) {
  TempDir dir;
  std::string good = readFile(gencat(dir, "good.cat", kSmall));
  ASSERT_EQ(good.size(), 133u);
  struct Case {
    const char* what;
    void (*damage)(std::string*);
    int set, key;
    const char* text;
  } cases[] = {
      {"intact", [](std::string*) {}, 2, 5, "cinq"},
      {"bad magic", [](std::string* d) { (*d)[0] = '#'; }, 1, 1, "<closed>"},
      {"version 2", [](std::string* d) { put32(d, 8, 2); }, 1, 1, "<closed>"},
      {"no sets", [](std::string* d) { put32(d, 20, 0); }, 1, 1, "<closed>"},
      {"more sets than records", [](std::string* d) { put32(d, 20, 3); }, 1, 1, "<closed>"},
      {"huge set count", [](std::string* d) { put32(d, 20, 0xFFFFFFFF); }, 1, 1, "<closed>"},
      {"header cut", [](std::string* d) { d->resize(27); }, 1, 1, "<closed>"},
      {"set records cut", [](std::string* d) { d->resize(60); }, 1, 1, "<closed>"},
      {"first set past the end", [](std::string* d) { put32(d, 24, 4000); }, 1, 1, "<closed>"},
      {"index past the end", [](std::string* d) { put32(d, 28 + 8, 130); }, 1, 1, "<closed>"},
      {"text block past the end", [](std::string* d) { put32(d, 28 + 16, 0x7FFFFFFF); }, 1, 1, "<closed>"},
      {"sets out of order", [](std::string* d) { put32(d, 56, 1); }, 1, 1, "<closed>"},
      {"deleted records in a loop",
       [](std::string* d) {
         put32(d, 28 + 4, 28);
         put32(d, 28 + 24, 1);
       },
       1, 1, "<closed>"},
      {"deleted set record", [](std::string* d) { put32(d, 20, 1); put32(d, 28 + 24, 1); }, 1, 1, kDefault},
      {"deleted set records do not count", [](std::string* d) { put32(d, 20, 1); put32(d, 28 + 24, 1); }, 2, 5, "cinq"},
      {"text offset past its block", [](std::string* d) { put32(d, 84 + 4, 8); }, 1, 1, kDefault},
      {"text not terminated in its block", [](std::string* d) { (*d)[132] = 'x'; }, 2, 5, kDefault},
      {"keys out of order", [](std::string* d) { put32(d, 84 + 12, 1); }, 1, 2, kDefault},
      {"damaged set spares the others", [](std::string* d) { (*d)[132] = 'x'; }, 1, 2, "deux"},
      {"negative set", [](std::string*) {}, -1, 1, kDefault}, {"key 0", [](std::string*) {}, 1, 0, kDefault},
  };
  for (const Case& c : cases) {
    std::string data = good;
    c.damage(&data);
    std::string path = dir.write(std::string("d-") + c.what, data);
    EXPECT_EQ(lookup(path, c.set, c.key), c.text) << c.what;
  }
  EXPECT_EQ(QlgCatalog_getMessage(nullptr, 1, 1, kDefault, nullptr), kDefault);
  QlgCatalog_shutdown();
}

TEST(Catalog, SetsSharingOneIndexCannotMakeTheLoaderHoldMoreThanItsBound) {
  TempDir dir;
  std::string source = "$set 1\n";
  for (int k = 1; k <= 100; k++) source += std::to_string(k) + " text\n";
  for (int set = 2; set <= 20; set++) source += "$set " + std::to_string(set) + "\n1 x\n";
  std::string data = readFile(gencat(dir, "shared.cat", source));
  ASSERT_FALSE(data.empty());
  for (int set = 2; set <= 20; set++) {
    size_t rec = 28 + 28 * static_cast<size_t>(set - 1);
    data.replace(rec + 8, 16, data, 28 + 8, 16);  // set 1's index, texts, size and count
  }
  std::string path = dir.write("shared-patched.cat", data);
  int loaded = 0;
  for (int set = 1; set <= 20; set++) loaded += lookup(path, set, 50) == "text";
  EXPECT_GT(loaded, 1);
  EXPECT_LT(loaded, 20);
  QlgCatalog_shutdown();
}

TEST(Catalog, CacheKeepsOnePerPathEvictsTheLeastRecentlyUsedButNoneInUse) {
  TempDir dir;
  std::string data = readFile(gencat(dir, "c.cat", kSmall));
  std::vector<std::string> paths;
  for (int i = 0; i < 11; i++) paths.push_back(dir.write("c" + std::to_string(i) + ".cat", data));
  QlgCatalog_shutdown();
  std::vector<QlgCatalog*> cats;
  for (int i = 0; i < 10; i++) cats.push_back(QlgCatalog_openFile(paths[i].c_str(), 0));
  EXPECT_EQ(QlgCatalog_openFile(paths[0].c_str(), 0), cats[0]);
  ASSERT_NE(QlgCatalog_openFile(paths[10].c_str(), 0), nullptr);
  for (const std::string& p : paths) EXPECT_TRUE(QlgCatalog_isCached(p.c_str())) << "all in use: none evicted";
  QlgCatalog_shutdown();
  for (int i = 0; i < 10; i++) QlgCatalog_close(QlgCatalog_openFile(paths[i].c_str(), 0));
  QlgCatalog_close(QlgCatalog_openFile(paths[0].c_str(), 0));  // now path 1 is the oldest
  QlgCatalog_close(QlgCatalog_openFile(paths[10].c_str(), 0));
  EXPECT_TRUE(QlgCatalog_isCached(paths[0].c_str()));
  EXPECT_FALSE(QlgCatalog_isCached(paths[1].c_str()));
  EXPECT_TRUE(QlgCatalog_isCached(paths[10].c_str()));
  QlgCatalog_shutdown();
}

TEST(Gencat, DumpAndCompileRoundTripExactly) {
  TempDir dir;
  const std::string source =
      "$set 1\n1 caf\xC3\xA9 \\\\ \\t tab\\r\n2  two blanks kept \n7 \n$set 4\n$set 9\n3 \\x01\\xFF\\n\n";
  std::string cat = gencat(dir, "rt.cat", source);
  ASSERT_FALSE(cat.empty());
  std::string dumped = dir.file("rt.txt");
  ASSERT_EQ(std::system(("'" ARDEL_GENCAT "' --dump '" + cat + "' '" + dumped + "'").c_str()), 0);
  EXPECT_EQ(readFile(dumped), source);
  std::string again = gencat(dir, "again.cat", readFile(dumped));
  EXPECT_EQ(readFile(again), readFile(cat));
  EXPECT_EQ(lookup(cat, 1, 1), "caf\xC3\xA9 \\ \t tab\r");
  EXPECT_EQ(lookup(cat, 9, 3), "\x01\xFF\n");
  QlgCatalog_shutdown();
}

TEST(Gencat, RejectsMalformedSources) {
  TempDir dir;
  const char* bad[] = {"1 before any set\n",        "$set 2\n$set 1\n",  "$set 1\n2 b\n1 a\n",
                       "$set 1\nx text\n",          "$set 1\n1 \\q\n",   "$set 1\n1 \\x0\n",
                       "$set 1\n1 \\x00\n",         "$set 1\n1 \xC3(\n", "$set x\n",
                       "$set 1\n99999999999 big\n", "# only a comment\n"};
  for (const char* source : bad) EXPECT_EQ(gencat(dir, "bad.cat", source), "") << source;
}

QlgI18Msg* toolkitMessage(uint32_t key) { return QlgI18Msg_create(QLG_MSG_CATALOG, 1, key, QlgMsgTable_text(key)); }

// What a user sees: with LANG naming French, the toolkit's messages come
// from the catalog installed beside the library (no NLSPATH needed), with
// parameters in the translation's order; every kind of bad environment
// falls back to the English texts.
TEST(ToolkitCatalog, InternalMessagesFollowTheUsersLanguageAndFallBackToEnglish) {
  TempDir dir;
  std::string file = dir.write("plain-file", "x");
  mkdir(dir.file("qlgmsg").c_str(), 0700);
  mkfifo(dir.file("fifo.cat").c_str(), 0600);
  std::string many;
  for (int i = 0; i < 1000; i++) many += dir.path() + "/none" + std::to_string(i) + "/%N.cat:";
  std::string built = ARDEL_CATALOG_DIR "/%l/%N.cat";
  std::string longName(10000, 'f');
  const char* fr20 = "QLGBC0020E M\xC3\xA9moire insuffisante.\r";
  const char* en20 = QlgMsgTable_text(20);
  struct Case {
    const char* lang;
    std::string nlspath;  // "-" leaves NLSPATH unset
    const char* text;
  } cases[] = {
      {"fr_FR.UTF-8", "-", fr20},
      {"fr_CA", "-", fr20},
      {"fr", built, fr20},
      {"fr_FR", many + built, fr20},
      {"de_DE.UTF-8", "-", en20},
      {"fr_FR", dir.path() + "/%N.cat", en20},
      {longName.c_str(), "-", en20},
      {"fr_FR", built.substr(0, built.size() - 6) + "%", en20},
      {"fr_FR", many, en20},
      {"fr_FR", file + "/%l/%N.cat", en20},
      {"fr_FR", dir.path() + "/%N", en20},
      {"fr_FR", dir.path() + "/fifo.cat", en20},
      {"fr_FR", dir.path() + "/fifo.cat:" + built, fr20},
  };
  for (const Case& c : cases) {
    inChild([&] {
      env("LANG", c.lang);
      env("NLSPATH", c.nlspath == "-" ? nullptr : c.nlspath.c_str());
      nlstest::restartMessages();
      EXPECT_EQ(nlstest::render(toolkitMessage(20)), c.text) << c.lang << " " << c.nlspath.substr(0, 80);
    });
  }
  inChild([] {
    env("LANG", "fr_FR.UTF-8");
    env("NLSPATH", nullptr);
    nlstest::restartMessages();
    QlgI18Msg* m = toolkitMessage(62);
    QlgI18Msg_addString(m, "cls");
    QlgI18Msg_addString(m, "obj");
    EXPECT_EQ(nlstest::render(m), "QLGBC0062W L'objet 'obj' ne peut \xC3\xAAtre cr\xC3\xA9\xC3\xA9 qu'une fois la classe 'cls' d\xC3\xA9" "finie.\r");
    m = toolkitMessage(3);
    QlgI18Msg_addInt(m, 1);
    QlgI18Msg_addInt(m, 2);
    QlgI18Msg_addString(m, "cat");
    EXPECT_EQ(nlstest::render(m), "QLGBC03E Le message de cl\xC3\xA9 2 du jeu 1 est introuvable dans le catalogue de messages cat.\r");
  });
}

TEST(ToolkitCatalog, ADamagedCatalogIsReportedOnceAndTheEnglishTextsAreUsed) {
  inChild([] {
    TempDir dir;
    std::string path = dir.write("qlgmsg.cat", "*nazgul* but not a catalog");
    env("LANG", "fr_FR.UTF-8");
    env("NLSPATH", (dir.path() + "/%N.cat").c_str());
    ASSERT_TRUE(QlgToolkit_initialize(nullptr));
    ardeltest::CaptureFd err(2);
    EXPECT_EQ(nlstest::render(toolkitMessage(20)), QlgMsgTable_text(20));
    EXPECT_EQ(nlstest::render(toolkitMessage(20)), QlgMsgTable_text(20));
    std::string report = "QLGBC02E The message catalog file " + path + " could not be opened.";
    std::string text = err.text();
    size_t first = text.find(report);
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_EQ(text.find(report, first + 1), std::string::npos) << "reported once: " << text;
  });
}

// Threads render while the catalog is first found, loaded and cached.
TEST(ToolkitCatalog, ThreadsRenderingAtOnceAllGetTheTranslation) {
  inChild([] {
    env("LANG", "fr_FR.UTF-8");
    env("NLSPATH", nullptr);
    std::atomic<int> french{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
      threads.emplace_back([&] {
        for (int i = 0; i < 50; i++)
          if (nlstest::render(toolkitMessage(20)).find("M\xC3\xA9moire") != std::string::npos) french++;
      });
    for (auto& t : threads) t.join();
    EXPECT_EQ(french.load(), 200);
  });
}

}  // namespace
