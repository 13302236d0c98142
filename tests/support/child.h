#pragma once

#include <gtest/gtest.h>

#include <functional>

namespace vistrelle::testing {

/// Runs `body` in a child process and waits for it: success when it came to its end without a failed expectation
/// (which the child prints). Nothing that it does to its user, folder, mounts or environment reaches the test program.
::testing::AssertionResult inChild(const std::function<void()>& body);

/// Whether the process may change users and mount; tests that need it say so when they skip.
bool isAdministrator();

/// Becomes the unprivileged user for good, when started by the administrator. For a child.
void becomeNobody();

/// Whether a child can mountScratch, found out by one that does; tests that need it say so when they skip.
bool canMount();

/// Gives the process its own view of the mounts and mounts a tmpfs of `options` ("size=1m"), or another file system
/// that needs no device, at `folder`. For a child.
bool mountScratch(const char* folder, const char* options, const char* type = "tmpfs");

}  // namespace vistrelle::testing
