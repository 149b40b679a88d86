// SPDX-License-Identifier: Apache-2.0
/*
 * Configuration discovery by the Windows rules that POSIX has no match
 * for: the ini file under %systemroot%\tyx\tyx.ini whatever the case of
 * the variable's name, with the root and the home written with backslashes
 * and a drive letter.
 */
#include <ardel/CLogWrapper.h>

#include <filesystem>
#include <string>

#include "frontend/CLogWrapperInt.h"
#include "support/TestSupport.h"

using namespace ardeltest;

TEST(WindowsIni, TheIniUnderTheSystemRootIsFoundWhateverTheCaseOfTheVariablesName) {
  const std::string expected = "E:/home/tyx/config/TyxTrace.properties";
  for (const char* variable : {"SYSTEMROOT", "sYsTeMrOoT"}) {
    SCOPED_TRACE(variable);
    TempDir dir;
    ASSERT_TRUE(std::filesystem::create_directory(dir.file("tyx")));
    writeFile(dir.file("tyx/tyx.ini"), "TYX_HomeDirectory = E:\\home\\tyx  \r\n");
    EnvVar test("TYX_TEST", nullptr);
    EnvVar root(variable, std::filesystem::path(dir.path()).make_preferred().string().c_str());
    EXPECT_EQ(initializeWrapper(nullptr), static_cast<int>(expected.size()));
    EXPECT_EQ(CLogWrapper_configPath(), expected);
  }
}
