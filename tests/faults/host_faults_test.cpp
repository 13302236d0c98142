// One call of a host's fails (fault_shim.cpp) while it stores preferences, copies and moves files, writes texts,
// exports a movie and runs a command: calls that the tool itself does not make. Whatever fails, the host goes on, what
// stands under a name is what stood there before or what was to be written, and the answer or a line of the log says
// which.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/spread.h"
#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::readFile;
using testing::ScratchFolder;

/// Files and folders below a folder with their contents.
using Tree = std::map<std::string, std::string>;

Tree treeOf(const std::string& folder) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    tree[fs::relative(entry.path(), folder).string()] =
        entry.is_regular_file() ? readFile(entry.path().string()) : std::string("(folder)");
  }
  return tree;
}

/// What one operation said.
struct Answer {
  int status = -1;
  int signal = 0;
  json value;

  bool isTrue() const { return value.contains("result") && value["result"] == true; }
  bool says(const std::string& piece) const { return value.dump().find(piece) != std::string::npos; }
};

/// A folder, a host and an operation of it in which calls fail.
class FaultyHost {
 public:
  FaultyHost() { folder_.makeFolder("config"); }

  const ScratchFolder& folder() const { return folder_; }

  Answer run(const json& request, const std::string& kind, long n, const std::string& counts = "") const {
    // Outside of what is compared.
    const ScratchFolder orders;
    const std::string order = orders.write("order", request.dump() + "\n");
    const testing::RunResult result = testing::runProgram({VISTRELLE_CALL}, [&] {
      if (!std::freopen(order.c_str(), "r", stdin)) std::_Exit(126);
      ::setenv("XDG_CONFIG_HOME", folder_.file("config").c_str(), 1);
      ::setenv("VISTRELLE_FAULT", (kind + ":" + std::to_string(n)).c_str(), 1);
      ::setenv("VISTRELLE_FAULT_IN", "main", 1);
      if (!counts.empty()) ::setenv("VISTRELLE_FAULT_COUNT", counts.c_str(), 1);
      ::setenv("LD_PRELOAD", VISTRELLE_FAULT_SHIM, 1);
    });
    return {result.status, result.signal, json::parse(result.output, nullptr, false)};
  }

  /// How many calls of a kind an undisturbed run makes.
  long count(const json& request, const std::string& kind) const {
    const ScratchFolder counts;
    run(request, kind, 0, counts.file("counts"));
    return std::atol(readFile(counts.file("counts")).c_str());
  }

 private:
  ScratchFolder folder_;
};

struct Subject {
  const char* name;
  const char* kind;
};

class HostFaults : public ::testing::TestWithParam<Subject> {
 protected:
  using Judge = std::function<void(const Answer& answer, const Tree& before, const Tree& after, const Tree& whole)>;

  /// Lets each call of the kind fail, or a spread of them, from the state that `prepare` makes.
  void failEach(const json& request, const std::function<void()>& prepare, const Judge& judge) {
    const std::string kind = GetParam().kind;
    prepare();
    const Tree before = treeOf(host.folder().path());
    const long calls = host.count(request, kind);
    ASSERT_GT(calls, 0);
    const Tree whole = treeOf(host.folder().path());
    int refused = 0;
    const std::vector<long> numbers = testing::spread(calls, 60);
    for (const long n : numbers) {
      prepare();
      const Answer answer = host.run(request, kind, n);
      SCOPED_TRACE(kind + " " + std::to_string(n) + ": " + answer.value.dump());
      EXPECT_EQ(answer.signal, 0);
      EXPECT_EQ(answer.status, 0);
      EXPECT_TRUE(answer.value.is_object());
      const Tree after = treeOf(host.folder().path());
      judge(answer, before, after, whole);
      refused += after == whole ? 0 : 1;
      if (HasFailure()) break;
    }
    std::cout << GetParam().name << ", " << kind << ": " << numbers.size() << " of " << calls << ", without effect "
              << refused << std::endl;
  }

  FaultyHost host;
};

json request(const std::string& operation, const json& arguments) {
  return {{"op", operation}, {"args", arguments}};
}

// ---- preferences ---------------------------------------------------------------------------------

class PreferenceFaults : public HostFaults {};

TEST_P(PreferenceFaults, LeaveTheOldOrTheNewFile) {
  const std::string config = host.folder().file("config");
  ASSERT_EQ(host.run(request("prefWrite", {"key", "the old value"}), "none", 0).status, 0);
  const Tree old = treeOf(config);
  ASSERT_FALSE(old.empty());
  const auto prepare = [&] {
    fs::remove_all(config);
    fs::create_directory(config);
    for (const auto& [name, content] : old) {
      if (content == "(folder)") {
        fs::create_directory(config + "/" + name);
      } else {
        host.folder().write("config/" + name, content);
      }
    }
  };
  failEach(request("prefWrite", {"key", "another value"}), prepare,
           [](const Answer& answer, const Tree& before, const Tree& after, const Tree& whole) {
             EXPECT_TRUE(after == before || after == whole);
             if (after != whole) {
               EXPECT_TRUE(answer.says("preferences         :-( ")) << "no line names it";
               EXPECT_TRUE(answer.says(".plist")) << "no line names it";
             }
           });
}

INSTANTIATE_TEST_SUITE_P(Calls, PreferenceFaults,
                         ::testing::Values(Subject{"preferences", "open"}, Subject{"preferences", "read"},
                                           Subject{"preferences", "write"}, Subject{"preferences", "fsync"},
                                           Subject{"preferences", "close"}, Subject{"preferences", "rename"}),
                         [](const auto& each) { return std::string(each.param.kind); });

// ---- files ---------------------------------------------------------------------------------------

class CopyFaults : public HostFaults {};

TEST_P(CopyFaults, LeaveTheSourceAndAWholeCopyOrNone) {
  const std::string source = host.folder().file("source");
  const std::string copy = host.folder().file("copy");
  const auto prepare = [&] {
    fs::remove_all(copy);
    host.folder().write("source/one", std::string(200'000, 'x'));
    host.folder().write("source/inner/two", std::string(3000, 'y'));
  };
  failEach(request("cpCocoa", {source, copy, "y"}), prepare,
           [](const Answer& answer, const Tree& before, const Tree& after, const Tree& whole) {
             EXPECT_TRUE(after == before || after == whole);
             EXPECT_TRUE(after == whole || !answer.isTrue()) << "a copy that is not there is reported";
           });
}

INSTANTIATE_TEST_SUITE_P(Calls, CopyFaults,
                         ::testing::Values(Subject{"copy", "open"}, Subject{"copy", "read"}, Subject{"copy", "close"},
                                           Subject{"copy", "rename"}),
                         [](const auto& each) { return std::string(each.param.kind); });

class MoveFaults : public HostFaults {};

TEST_P(MoveFaults, AcrossVolumesLeaveOneWholeItem) {
  const ScratchFolder other(ScratchFolder::Place::memory);
  struct stat here {};
  struct stat there {};
  ASSERT_EQ(::stat(host.folder().path().c_str(), &here), 0);
  ASSERT_EQ(::stat(other.path().c_str(), &there), 0);
  if (here.st_dev == there.st_dev) GTEST_SKIP() << "this machine has one volume only";
  const std::string source = other.file("source");
  const std::string moved = host.folder().file("moved");
  const std::string content(300'000, 'x');
  const auto prepare = [&] {
    fs::remove_all(moved);
    other.write("source", content);
  };
  failEach(request("mv", {source, moved, "y"}), prepare,
           [&](const Answer& answer, const Tree& before, const Tree& after, const Tree& whole) {
             EXPECT_TRUE(after == before || after == whole);
             const bool isMoved = after == whole;
             EXPECT_TRUE(isMoved || readFile(source) == content) << "lost";
             EXPECT_TRUE(isMoved || !answer.isTrue()) << "a move that did not happen is reported";
             EXPECT_LE(treeOf(other.path()).size(), 1U);
           });
}

INSTANTIATE_TEST_SUITE_P(Calls, MoveFaults,
                         ::testing::Values(Subject{"move", "open"}, Subject{"move", "read"}, Subject{"move", "write"},
                                           Subject{"move", "fsync"}, Subject{"move", "close"},
                                           Subject{"move", "rename"}),
                         [](const auto& each) { return std::string(each.param.kind); });

// ---- export --------------------------------------------------------------------------------------

class ExportFaults : public HostFaults {};

TEST_P(ExportFaults, LeaveTheOldOrTheNewMovie) {
  const std::string movie = testing::sampleMovie("prog_8s.mp4");
  const std::string exported = host.folder().file("exported.mov");
  const auto prepare = [&] {
    for (const auto& entry : fs::directory_iterator(host.folder().path())) {
      if (entry.is_regular_file()) fs::remove(entry.path());
    }
    host.folder().write("exported.mov", std::string(5000, 'o'));
  };
  failEach(request("qtAvExport", {{{"movie", movie}}, exported, -1}), prepare,
           [](const Answer& answer, const Tree& before, const Tree& after, const Tree& whole) {
             EXPECT_TRUE(after == whole || answer.says(":-(")) << "no line says it";
             if (after == before || after == whole) return;
             // What was exported under a number could not be put in place of the old movie: it stays beside it, whole.
             EXPECT_EQ(answer.value["result"], false);
             int numbered = 0;
             for (const auto& [name, content] : after) {
               if (name == "config") continue;
               const bool isOld = name == "exported.mov" && content == before.at(name);
               EXPECT_TRUE(isOld || content == whole.at("exported.mov")) << name;
               numbered += name != "exported.mov" ? 1 : 0;
             }
             EXPECT_EQ(numbered, 1);
           });
}

INSTANTIATE_TEST_SUITE_P(Calls, ExportFaults,
                         ::testing::Values(Subject{"export", "open"}, Subject{"export", "read"},
                                           Subject{"export", "write"}, Subject{"export", "fsync"},
                                           Subject{"export", "close"}, Subject{"export", "rename"}),
                         [](const auto& each) { return std::string(each.param.kind); });

// ---- commands ------------------------------------------------------------------------------------

class CommandFaults : public HostFaults {};

TEST_P(CommandFaults, GiveTheOutputOrNothing) {
  failEach(
      request("taskArray", json::array({json::array({"/bin/echo", "one two"})})), [] {},
      [](const Answer& answer, const Tree&, const Tree&, const Tree&) {
        const bool isWhole = answer.value.contains("result") && answer.value["result"] == "one two\n";
        EXPECT_TRUE(isWhole || (answer.value["result"].is_null() && answer.says(":-(")));
      });
}

INSTANTIATE_TEST_SUITE_P(Calls, CommandFaults,
                         ::testing::Values(Subject{"command", "fork"}, Subject{"command", "pipe"},
                                           Subject{"command", "read"}, Subject{"command", "close"},
                                           Subject{"command", "waitpid"}),
                         [](const auto& each) { return std::string(each.param.kind); });

// ---- batches -------------------------------------------------------------------------------------

// Each flush of a batch's worker: no picture may be called done that need not be on the disk.
TEST(BatchFaults, PicturesThatAreNotFlushedAreNotDelivered) {
  const ScratchFolder folder;
  const json job = {{"source", testing::lateIndexClip(folder)},
                    {"destination", folder.file("out")},
                    {"width", 160},
                    {"height", 120},
                    {"timecodes", {"0.1", "0.5"}}};
  const std::string list = folder.write("list", job.dump() + "\n");
  const auto run = [&](long n, const std::string& counts) {
    fs::remove_all(folder.file("out"));
    return testing::runProgram({VISTRELLE_BATCH, "--jobs", "1", list}, [&] {
      ::setenv("VISTRELLE_FAULT", ("fsync:" + std::to_string(n)).c_str(), 1);
      ::setenv("VISTRELLE_FAULT_IN", "children", 1);
      ::setenv("VISTRELLE_FAULT_COUNT", counts.c_str(), 1);
      ::setenv("LD_PRELOAD", VISTRELLE_FAULT_SHIM, 1);
    });
  };
  const std::string counts = folder.file("counts");
  const testing::RunResult whole = run(0, counts);
  EXPECT_EQ(whole.status, 0) << whole.error;
  EXPECT_EQ(treeOf(folder.file("out")).size(), 2U);
  const long calls = std::atol(readFile(counts).c_str());
  EXPECT_EQ(calls, 3);  // each picture and their folder
  for (long n = 1; n <= calls; ++n) {
    const testing::RunResult result = run(n, "");
    SCOPED_TRACE(std::to_string(n) + ":\n" + result.output + result.error);
    EXPECT_NE(result.status, 0);
    EXPECT_NE(result.output.find("\"temporary failure\""), std::string::npos);
    EXPECT_FALSE(fs::exists(folder.file("out")));
  }
}

}  // namespace
}  // namespace vistrelle
