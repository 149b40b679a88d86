// SPDX-License-Identifier: Apache-2.0
// Codesets and locales: conversions through the built-in and the C
// library's codesets ("?" for what a codeset cannot express), log files and
// the console in the configured codeset, locale-name normalisation and the
// order in which catalog files are searched.

#include <ardel/QlgLogger.h>
#include <ardel/QlgObject.h>
#include <ardel/QlgToolkit.h>
#include "nls/NlsTestSupport.h"
#include "nls/QlgCodeset.h"
#include "nls/QlgNls.h"
#include "platform/CxCharset.h"

namespace {

using ardeltest::CaptureFd;
using ardeltest::inChild;
using ardeltest::readFile;
using ardeltest::TempDir;
using nlstest::env;

std::string convert(QlgCodeset* cs, const std::string& utf8) {
  char out[256];
  int n = QlgCodeset_convert(cs, utf8.c_str(), -1, out, sizeof out);
  return std::string(out, static_cast<size_t>(n));
}

std::string back(QlgCodeset* cs, const std::string& bytes) {
  char out[256];
  int n = QlgCodeset_toUtf8(cs, bytes.data(), static_cast<int>(bytes.size()), out, sizeof out);
  return std::string(out, static_cast<size_t>(n));
}

TEST(Codeset, ConvertsBothWaysAndWritesQuestionMarksForTheInexpressible) {
  const std::string text = "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";  // café € 😀
  struct Case { const char* name; const char* canonical; std::string bytes; std::string readBack; } cases[] = {
      {"ISO-8859-1", "ISO88591", "caf\xE9 ? ?", "caf\xC3\xA9 ? ?"},
      {"latin1", "LATIN1", "caf\xE9 ? ?", "caf\xC3\xA9 ? ?"},
      {"CP1252", "CP1252", "caf\xE9 \x80 ?", "caf\xC3\xA9 \xE2\x82\xAC ?"},
      {"UTF-16LE", "UTF16LE", std::string("c\0a\0f\0\xE9\0 \0\xAC\x20 \0\x3D\xD8\x00\xDE", 18), text},
      {"GB18030", "GB18030", "caf\xA8\xA6 \xA2\xE3 \x94\x39\xFC\x36", text},
      {"INTERNAL37", "INTERNAL37", "caf\xE9 ? ?", "caf\xC3\xA9 ? ?"},
      {"utf-8", "UTF8", text, text},
      {"ORX-1252", "1252", "caf\xE9 \x80 ?", "caf\xC3\xA9 \xE2\x82\xAC ?"},
  };
  for (const Case& c : cases) {
    QlgCodeset* cs = QlgCodeset_open(c.name);
    ASSERT_NE(cs, nullptr) << c.name;
    EXPECT_STREQ(QlgCodeset_name(cs), c.canonical);
    EXPECT_EQ(convert(cs, text), c.bytes) << c.name;
    EXPECT_EQ(back(cs, c.bytes), c.readBack) << c.name;
    char one[8];
    EXPECT_EQ(QlgCodeset_fromWide(cs, 0xE9, one, sizeof one) > 0, true) << c.name;
    QlgCodeset_close(cs);
  }
  for (const char* unknown : {"NO-SUCH-CODESET", "", "/etc/passwd", "..\\x"})
    EXPECT_EQ(QlgCodeset_open(unknown), nullptr) << unknown;
  QlgCodeset* latin = QlgCodeset_open("ISO-8859-1");
  char one[8];
  EXPECT_EQ(QlgCodeset_fromWide(latin, 0x20AC, one, sizeof one), -1) << "a wide character without a byte";
  uint32_t wide[8];
  EXPECT_EQ(QlgCodeset_toWide(latin, "a\xE9", -1, wide, 8), 2);
  EXPECT_EQ(wide[1], 0xE9u);
  // Malformed input (surrogates at both ends of their range, an overlong "/") is a "?" per byte.
  EXPECT_EQ(convert(latin, "\xED\xA0\x80|\xED\xBF\xBF|\xC0\xAF|\xEE\x80\x80"), "???|???|??|?");
  EXPECT_EQ(QlgCodeset_toWide(latin, "a", -1, wide, 0), 0);  // no room: nothing written
  EXPECT_EQ(QlgCodeset_toWide(latin, "a", -1, nullptr, 8), 0);
  EXPECT_EQ(wide[0], 0x61u);
  char name[4] = "xyz";
  EXPECT_EQ(CxCharset_localeCodeset(name, 0), 0);
  EXPECT_STREQ(name, "xyz");
  char small[4];
  EXPECT_EQ(QlgCodeset_convert(QlgCodeset_utf8(), "ab\xC3\xA9", -1, small, sizeof small), 2)
      << "cut before a character that does not fit whole";
  char exact[5];
  EXPECT_EQ(QlgCodeset_convert(QlgCodeset_utf8(), "ab\xC3\xA9", -1, exact, sizeof exact), 4)
      << "a text that fits exactly is whole";
  QlgCodeset_close(latin);
}

TEST(Codeset, LogFilesAreWrittenInTheirFileEncoding) {
  inChild([] {
    TempDir dir;
    std::string props = dir.write("t.properties", "t.logger.className=qlg_basiclogger\nt.logger.level=DEBUG_MAX\n"
                                  "t.logger.listenerNames=t.file\nt.file.className=qlg_filehandler\n"
                                  "t.file.fileName=" + dir.file("latin.log") + "\nt.file.fileEncoding=ISO-8859-1\n");
    ASSERT_TRUE(QlgToolkit_initialize(props.c_str()));
    QlgObject* logger = QlgObject_create("t.logger", nullptr);
    ASSERT_NE(logger, nullptr);
    QlgLogger_logMin(logger, "f.c", "fn", 1, "caf\xC3\xA9 \xE2\x82\xAC", 0);
    QlgObject_release(logger);
    QlgToolkit_shutdown();
    std::string log = readFile(dir.file("latin.log"));
    EXPECT_NE(log.find("caf\xE9 ?"), std::string::npos) << log;
    EXPECT_EQ(log.find("\xC3\xA9"), std::string::npos) << log;
  });
}

TEST(Codeset, ConsoleOutputFollowsTheLocaleCodeset) {
  struct Case { const char* lang; const char* printed; } cases[] = {
      {"fr_FR.ISO-8859-1", "caf\xE9 ?"}, {"fr_FR.UTF-8", "caf\xC3\xA9 \xE2\x82\xAC"}, {"C", "caf? ?"}};
  for (const Case& c : cases) {
    inChild([&] {
      env("LC_ALL", nullptr);
      env("LC_CTYPE", nullptr);
      env("LANG", c.lang);
      nlstest::restartMessages();
      CaptureFd err(2);
      QlgI18Msg_print(stderr, "caf\xC3\xA9 \xE2\x82\xAC");
      EXPECT_EQ(err.text(), c.printed) << c.lang;
    });
  }
}

TEST(Codeset, TimeFormattingWorksInTheDefaultCodeset) {
  inChild([] {
    env("LC_ALL", nullptr);
    env("LANG", "fr_FR.UTF-8");
    QlgNls_shutdown();
    QlgCodeset* latin1 = QlgCodeset_open("ISO-8859-1");
    QlgNls_setDefaultCodeset(latin1);
    struct tm t = {};
    t.tm_mday = 5;
    char out[128];
    EXPECT_EQ(QlgNls_strftime(out, sizeof out, "%d \xE9t\xE9", &t), 6u);
    EXPECT_STREQ(out, "05 \xE9t\xE9");
    QlgNls_setDefaultCodeset(nullptr);
    EXPECT_STREQ(QlgCodeset_name(QlgNls_defaultCodeset()), "INTERNAL37");
    QlgCodeset_close(latin1);  // the default is borrowed, never owned
  });
}

TEST(Locale, NamesAreNormalisedAndMappedToTheirCatalogLanguage) {
  struct Case { const char* name; const char* normalised; const char* catalogLanguage; } cases[] = {
      {"japanese", "ja_JP", "ja_JP"}, {"Jp_JP", "ja_JP", "ja_JP"}, {"en-us", "en_US", "C"},
      {"de", "de", "de"},             {"de.UTF-8", "de", "de"},   {"ja_jp", "ja_JP", "ja_JP"},
      {"fr_FR.UTF-8", "fr_FR", "fr_FR"}, {"fr_CA", "fr_CA", "fr_FR"}, {"american", "C", "C"},
      {"enUS8", "en_US", "C"},        {"POSIX", "POSIX", "POSIX"}, {"pt", "pt", "pt_BR"},
      {"zh_TW", "zh_TW", "zh_TW"},    {"cz", "cs", "cs"},         {"fr_F1", "fr_F1", "fr_FR"},
  };
  for (const Case& c : cases) {
    char out[QLG_NLS_NAME_SIZE];
    QlgNls_normalizeLocale(c.name, out, sizeof out);
    EXPECT_STREQ(out, c.normalised) << c.name;
    QlgNls_catalogLanguage(c.name, out, sizeof out);
    EXPECT_STREQ(out, c.catalogLanguage) << c.name;
  }
  std::string huge(10000, 'x');
  char out[QLG_NLS_NAME_SIZE];
  QlgNls_normalizeLocale(huge.c_str(), out, sizeof out);
  EXPECT_EQ(std::string(out), huge.substr(0, QLG_NLS_NAME_SIZE - 1));
}

// The search tries each template element in turn, and in each the
// candidates: locale, language, catalog language, "C".
TEST(Locale, CatalogSearchOrderFollowsElementsThenCandidates) {
  inChild([] {
    TempDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    const std::string tpl = "C:\\msg\\%L\\%N.cat;D:\\x\\%l\\%N";
    struct Case { std::vector<std::string> files; int flags; std::string found; } cases[] = {
        {{"C:\\msg\\C\\qlgmsg.cat", "C:\\msg\\fr_FR\\qlgmsg.cat", "C:\\msg\\fr\\qlgmsg.cat"}, 0, "C:\\msg\\fr\\qlgmsg.cat"},
        {{"C:\\msg\\C\\qlgmsg.cat", "C:\\msg\\fr_FR\\qlgmsg.cat"}, 0, "C:\\msg\\fr_FR\\qlgmsg.cat"},
        {{"C:\\msg\\C\\qlgmsg.cat", "C:\\msg\\fr_FR\\qlgmsg.cat"}, QLG_NLS_NO_CAT_LANG, "C:\\msg\\C\\qlgmsg.cat"},
        {{"C:\\msg\\C\\qlgmsg.cat", "D:\\x\\fr\\qlgmsg"}, 0, "C:\\msg\\C\\qlgmsg.cat"},
        {{"C:\\msg\\C\\qlgmsg.cat", "D:\\x\\fr\\qlgmsg"}, QLG_NLS_NO_C, "D:\\x\\fr\\qlgmsg"},
        {{"C:\\msg\\fr_CA\\qlgmsg.cat"}, QLG_NLS_NO_LANG_ONLY | QLG_NLS_NO_CAT_LANG | QLG_NLS_NO_C, "C:\\msg\\fr_CA\\qlgmsg.cat"},
        {{}, 0, ""},
    };
    for (const Case& c : cases) {
      for (const auto& f : c.files) ardeltest::writeFile(f, "x");
      char out[256];
      int found = QlgNls_findCatalog("qlgmsg", c.flags, tpl.c_str(), "fr_CA", out, sizeof out);
      EXPECT_EQ(found ? std::string(out) : "", c.found) << c.flags;
      for (const auto& f : c.files) unlink(f.c_str());
    }
    env("LANG", "fr_CA");
    env("NLSPATH", nullptr);
    ardeltest::writeFile("qlgmsg.cat", "x");
    char out[256];
    EXPECT_TRUE(QlgNls_findCatalog("qlgmsg", 0, nullptr, nullptr, out, sizeof out));
    EXPECT_STREQ(out, "qlgmsg.cat") << "without NLSPATH the current directory comes first";
  });
}

}  // namespace
