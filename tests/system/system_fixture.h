#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/preferences/user_defaults.h"
#include "vistrelle/system/tmp_folder.h"

namespace vistrelle {

/// Preferences, temporary folder and log of a test's own.
class SystemTest : public ::testing::Test {
 protected:
  SystemTest() { tmpFolderSet(temporaryFolder()); }
  ~SystemTest() override { tmpFolderSet(""); }

  std::string temporaryFolder() const { return scratch_.file("tmp"); }
  std::string file(const std::string& name) const { return scratch_.file(name); }
  std::string write(const std::string& name, const std::string& content) const { return scratch_.write(name, content); }
  std::string preferencesFile() const { return scratch_.file("preferences.plist"); }
  void makeDeveloperMachine() { platform::userDefaults().get()->set("id", "me@vistrelle.example"); }

  testing::ScratchFolder scratch_;
  platform::Installed<platform::UserDefaults> defaults_{platform::userDefaults(),
                                                        platform::fileDefaults(preferencesFile())};
  testing::RecordingLog log_;
};

/// The same, with verbose log lines.
class VerboseSystemTest : public SystemTest {
 protected:
  VerboseSystemTest() { setVerbose(true); }
};

}  // namespace vistrelle
