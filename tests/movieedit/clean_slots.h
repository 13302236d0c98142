#pragma once

#include <gtest/gtest.h>

#include <optional>

#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/system/tmp_folder.h"

namespace vistrelle::testing {

/// Empty slots before and after each test, and a temporary folder of the test's own.
class CleanSlots : public ::testing::Test {
 protected:
  CleanSlots() {
    clearSlots();
    tmpFolderSet(folder.file("private"));
  }
  ~CleanSlots() override {
    clearSlots();
    tmpFolderSet("");
  }
  static void clearSlots() {
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
    MYMOVIEVIEWset(nullptr);
    MYMOVIEVIEWpathSet(std::nullopt);
    MYMOVIEEDITset(nullptr);
  }

  ScratchFolder folder;
};

}  // namespace vistrelle::testing
