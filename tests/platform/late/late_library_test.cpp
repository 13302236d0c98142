#include "vistrelle/platform/late/late_library.h"

#include <dlfcn.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using vistrelle::platform::LateFunction;
using vistrelle::platform::LateLibrary;

bool isLoaded(const char* library) {
  void* handle = ::dlopen(library, RTLD_LAZY | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

TEST(LateLibrary, LoadsAtTheFirstCallAndNotBefore) {
  EXPECT_EXIT(
      {
        if (isLoaded("libz.so.1")) std::_Exit(1);
        if (std::string(::zlibVersion()).substr(0, 2) != "1.") std::_Exit(2);
        std::_Exit(isLoaded("libz.so.1") ? 0 : 3);
      },
      testing::ExitedWithCode(0), "");
}

TEST(LateLibrary, PutsTheFunctionInPlaceOnce) {
  LateLibrary library{nullptr, "libz.so.1"};
  LateFunction function{nullptr, "adler32", &library};
  void* address = vistrelleLateResolve(&function);
  EXPECT_NE(address, nullptr);
  EXPECT_EQ(function.address, address);
  EXPECT_NE(library.handle, nullptr);
  const auto checksum = reinterpret_cast<unsigned long (*)(unsigned long, const unsigned char*, unsigned)>(address);
  EXPECT_EQ(checksum(1, reinterpret_cast<const unsigned char*>("Wikipedia"), 9), 0x11E60398U);
}

// The doorway hands on whole numbers, floating-point numbers and those on the stack, first call and later ones.
TEST(LateLibrary, KeepsAllArguments) {
  for (int call = 0; call < 2; ++call) {
    std::array<char, 200> text{};
    const int length =
        ::g_snprintf(text.data(), text.size(), "%d %d %d %d %d %.2f %.2f %.2f %.2f %.2f %.2f %.2f %.2f %.2f", 1, 2, 3,
                     4, 5, 0.25, 1.25, 2.25, 3.25, 4.25, 5.25, 6.25, 7.25, 8.25);
    EXPECT_STREQ(text.data(), "1 2 3 4 5 0.25 1.25 2.25 3.25 4.25 5.25 6.25 7.25 8.25");
    EXPECT_EQ(length, 54);
  }
}

[[noreturn]] void callFromManyThreads() {
  std::array<unsigned long, 8> sums{};
  std::vector<std::thread> threads;
  for (unsigned long& sum : sums) {
    threads.emplace_back([&sum] { sum = ::crc32(0, reinterpret_cast<const Bytef*>("123456789"), 9); });
  }
  for (std::thread& thread : threads) thread.join();
  const auto isRight = [](unsigned long sum) { return sum == 0xCBF43926U; };
  std::_Exit(std::all_of(sums.begin(), sums.end(), isRight) ? 0 : 1);
}

TEST(LateLibrary, ManyThreadsMayCallFirst) {
  EXPECT_EXIT(callFromManyThreads(), testing::ExitedWithCode(0), "");
}

TEST(LateLibraryDeath, MissingLibraryEndsTheProcessAsTheLoaderDoes) {
  LateLibrary library{nullptr, "libvistrelle-absent.so.1"};
  LateFunction function{nullptr, "anything", &library};
  EXPECT_EXIT(vistrelleLateResolve(&function), testing::ExitedWithCode(127),
              "error while loading shared libraries: libvistrelle-absent.so.1");
}

TEST(LateLibraryDeath, TheProgramMayHaveItsOwnEnd) {
  LateLibrary library{nullptr, "libvistrelle-absent.so.1"};
  LateFunction function{nullptr, "anything", &library};
  const auto endWithReason = [](const char* reason) {
    std::fprintf(stderr, "ours: %s\n", reason);
    std::_Exit(1);
  };
  EXPECT_EXIT(
      {
        vistrelle::platform::onLateFailure(endWithReason);
        vistrelleLateResolve(&function);
      },
      testing::ExitedWithCode(1), "ours: libvistrelle-absent.so.1");
}

TEST(LateLibraryDeath, MissingFunctionEndsTheProcessToo) {
  LateLibrary library{nullptr, "libz.so.1"};
  LateFunction function{nullptr, "vistrelleAbsent", &library};
  EXPECT_EXIT(vistrelleLateResolve(&function), testing::ExitedWithCode(127), "vistrelleAbsent");
}

}  // namespace
