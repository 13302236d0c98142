#include "vistrelle/system/commands.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/child.h"
#include "tests/system/system_fixture.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/bundle/folder_bundle.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/process/process.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using platform::Command;
using platform::Dictionary;
using platform::List;
using platform::OptionalText;
using platform::OptionalValue;
using platform::Value;
using Words = std::vector<std::string>;

/// Runs everything for real and remembers what it was.
class WatchedRunner : public platform::ForwardingProcessRunner {
 public:
  WatchedRunner() : ForwardingProcessRunner(platform::spawningProcessRunner()) {}
  platform::ProcessOutput runPipeline(const std::vector<Command>& commands) override {
    commands_.insert(commands_.end(), commands.begin(), commands.end());
    return ForwardingProcessRunner::runPipeline(commands);
  }
  platform::ProcessOutput run(const Command& command) override {
    commands_.push_back(command);
    return ForwardingProcessRunner::run(command);
  }
  bool launch(const Command& command) override {
    commands_.push_back(command);
    return ForwardingProcessRunner::launch(command);
  }
  std::vector<Command> commands_;
};

template <typename Fixture>
class Watched : public Fixture {
 protected:
  /// The last command line that the shell got.
  std::string lastLine() const { return runner_->commands_.empty() ? "" : runner_->commands_.back().arguments.back(); }
  std::shared_ptr<WatchedRunner> runner_ = std::make_shared<WatchedRunner>();
  platform::Installed<platform::ProcessRunner> installed_{platform::processRunner(), runner_};
};
using TaskArrayTest = Watched<SystemTest>;
using TaskArrayVerboseTest = Watched<VerboseSystemTest>;
using TaskWithStrTest = Watched<SystemTest>;
using TaskWithStrVerboseTest = Watched<VerboseSystemTest>;
using StringSafetyTest = Watched<SystemTest>;
using StringSafetyVerboseTest = Watched<VerboseSystemTest>;
using LaunchTest = Watched<VerboseSystemTest>;
using ViaCatTest = Watched<SystemTest>;
using ViaCatVerboseTest = Watched<VerboseSystemTest>;

Value list(const Words& words) {
  return List(words.begin(), words.end());
}

// ---- taskArray ------------------------------------------------------------------------------------------------------

TEST_F(TaskArrayTest, EchoReturnsItsLineWithTheLineEnd) {
  EXPECT_EQ(taskArray(Words{"/bin/echo", "hello"}), "hello\n");
  EXPECT_TRUE(log_.has("taskArray           - begin"));
}

TEST_F(TaskArrayTest, OutputOfBlanksOnlyIsNothing) {
  EXPECT_FALSE(taskArray(Words{"/bin/echo"}));
  EXPECT_FALSE(taskArray(Words{"/usr/bin/printf", " "}));
  EXPECT_FALSE(taskArray(Words{"/usr/bin/printf", " \\n"}));
  EXPECT_FALSE(taskArray(Words{"/bin/true"}));
  EXPECT_EQ(taskArray(Words{"/usr/bin/printf", "\\n\\n"}), "\n\n");
}

TEST_F(TaskArrayTest, AbsentOrEmptyListIsNothing) {
  EXPECT_FALSE(taskArray(std::nullopt));
  EXPECT_FALSE(taskArray(Words{}));
  EXPECT_EQ(log_.count("taskArray           - begin"), 2);
}

TEST_F(TaskArrayTest, ListThatBeginsWithASeparatorIsNothing) {
  EXPECT_FALSE(taskArray(Words{"|", "/bin/echo", "a"}));
  EXPECT_TRUE(runner_->commands_.empty());
}

TEST_F(TaskArrayTest, TwoSeparatorsInARowAreNothing) {
  EXPECT_FALSE(taskArray(Words{"/bin/echo", "a", "|", "|", "/bin/cat"}));
  EXPECT_TRUE(runner_->commands_.empty());
}

TEST_F(TaskArrayTest, ListThatEndsWithASeparatorAddsNoTask) {
  EXPECT_EQ(taskArray(Words{"/bin/echo", "a", "|"}), "a\n");
  EXPECT_EQ(runner_->commands_.size(), 1U);
}

TEST_F(TaskArrayTest, MissingFirstToolIsNothingWithoutALine) {
  EXPECT_FALSE(taskArray(Words{"/bin/absent-tool", "a"}));
  EXPECT_FALSE(log_.hasContaining("tool !present"));
}

TEST_F(TaskArrayTest, MissingLaterToolIsNothingWithALineAndNothingStarts) {
  EXPECT_FALSE(taskArray(Words{"/usr/bin/touch", file("mark"), "|", "/bin/absent-tool"}));
  EXPECT_TRUE(log_.has("taskArray      :-( tool !present '/bin/absent-tool'"));
  EXPECT_TRUE(runner_->commands_.empty());
  EXPECT_FALSE(fs::exists(file("mark")));
}

TEST_F(TaskArrayTest, PipelineGivesTheLastToolsOutputAndErrors) {
  EXPECT_EQ(taskArray(Words{"/usr/bin/printf", "b\\na\\n", "|", "/usr/bin/sort", "|", "/usr/bin/tr", "a-z", "A-Z"}),
            "A\nB\n");
  const auto text = taskArray(Words{"/bin/echo", "a", "|", "/bin/sh", "-c", "cat; echo error 1>&2"});
  EXPECT_EQ(text, "a\nerror\n");
}

TEST_F(TaskArrayTest, FirstToolThatWritesMuchAndLastThatReadsTenLines) {
  EXPECT_EQ(taskArray(Words{"/usr/bin/seq", "100000000", "|", "/usr/bin/head", "-n", "10"}),
            "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n");
}

TEST_F(TaskArrayTest, LongOutputIsComplete) {
  const auto text = taskArray(Words{"/usr/bin/seq", "300000"});
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), 1'988'895U);
}

TEST_F(TaskArrayTest, WordWithASchemeStaysAndATildeBecomesTheHomeFolder) {
  const std::string home = platform::homeFolder();
  EXPECT_EQ(taskArray(Words{"/bin/echo", "~/movie.mov", "~/http://a"}), home + "/movie.mov ~/http://a\n");
}

TEST_F(TaskArrayTest, WordsAreNotInterpreted) {
  EXPECT_EQ(taskArray(Words{"/bin/echo", "$(id)", "`id`", "a  b", ";", "&", "||"}), "$(id) `id` a  b ; & ||\n");
}

TEST_F(TaskArrayTest, OutputThatIsNotUtf8IsNothing) {
  EXPECT_FALSE(taskArray(Words{"/usr/bin/printf", "\\377\\376"}));
  EXPECT_EQ(taskArray(Words{"/usr/bin/printf", "\\303\\251"}), "é");
}

TEST_F(TaskArrayTest, ToolWithoutExecutePermissionIsNothing) {
  EXPECT_FALSE(taskArray(Words{write("tool", "#!/bin/sh\necho no\n")}));
  EXPECT_TRUE(log_.hasContaining("cannot be started '" + file("tool") + "'"));
}

TEST_F(TaskArrayTest, ExitStatusIsNotExamined) {
  EXPECT_EQ(taskArray(Words{"/bin/sh", "-c", "echo a; exit 3"}), "a\n");
  EXPECT_EQ(taskArray(Words{"/bin/sh", "-c", "echo a; kill -9 $$"}), "a\n");
}

TEST_F(TaskArrayTest, ChildEnvironmentOfABareTool) {
  ::setenv("LC_CTYPE", "C", 1);
  const auto text = taskArray(Words{"/usr/bin/env"});
  ::unsetenv("LC_CTYPE");
  ASSERT_TRUE(text);
  EXPECT_THAT(*text, ::testing::HasSubstr("LC_CTYPE=en_US.UTF-8\n"));
  EXPECT_THAT(*text, ::testing::HasSubstr("FONTCONFIG_FILE=" + platform::homeFolder() +
                                          "/Library/Application Support/(null)/fonts.conf\n"));
  EXPECT_THAT(*text,
              ::testing::HasSubstr("FONTCONFIG_PATH=" + temporaryFolder() + "/app.app/Contents/Resources/fonts\n"));
}

TEST_F(TaskArrayTest, ChildEnvironmentNamesTheBundle) {
  const platform::Installed<platform::Bundle> bundle(platform::mainBundle(),
                                                     platform::folderBundle({"Studio", scratch_.path(), {}}));
  EXPECT_THAT(taskArray(Words{"/usr/bin/env"}).value_or(""),
              ::testing::HasSubstr("/Library/Application Support/Studio/fonts.conf\n"));
}

TEST_F(TaskArrayTest, DeveloperMachineSeesTheArguments) {
  taskArray(Words{"/bin/echo", "quiet"});
  EXPECT_FALSE(log_.hasContaining("separatedArgsByTask…"));
  makeDeveloperMachine();
  taskArray(Words{"/bin/echo", "a", "|", "/bin/cat"});
  EXPECT_TRUE(log_.has("separatedArgsByTask…: " +
                       platform::description(Value(List{list({"/bin/echo", "a"}), list({"/bin/cat"})}))));
  EXPECT_TRUE(log_.has("taskArray           : ma " + platform::description(Words{"a"})));
  EXPECT_TRUE(log_.has("taskArray           : ma " + platform::description(Words{})));
}

TEST_F(TaskArrayVerboseTest, VerboseLines) {
  taskArray(Words{"/bin/echo", "a"});
  EXPECT_TRUE(log_.has("taskArray           # 1"));
  const auto& environment = runner_->commands_.at(0).environment;
  EXPECT_TRUE(log_.has("env post            : " +
                       platform::description(Value(Dictionary(environment.begin(), environment.end())))));
}

// ---- taskWithStr ----------------------------------------------------------------------------------------------------

TEST_F(TaskWithStrTest, ElementWithABlankIsQuoted) {
  EXPECT_EQ(taskWithStr(list({"/bin/echo", "a b"}), std::nullopt), "a b");
  EXPECT_EQ(lastLine(), "/bin/echo 'a b'");
}

TEST_F(TaskWithStrTest, SingleQuoteIsTakenOutOfTheQuotes) {
  EXPECT_EQ(taskWithStr(list({"/bin/echo", "it's"}), std::nullopt), "it's");
  EXPECT_EQ(lastLine(), "/bin/echo 'it'\\''s'");
  EXPECT_EQ(taskWithStr(list({"/bin/echo", "'"}), std::nullopt), "'");
}

TEST_F(TaskWithStrTest, ElementWithADoubleQuoteIsWrappedInThemUnescaped) {
  taskWithStr(list({"/bin/echo", "a \"b c\" d"}), std::nullopt);
  EXPECT_EQ(lastLine(), "/bin/echo \"a \"b c\" d\"");
}

TEST_F(TaskWithStrTest, QuotesAroundAnElementAreReplaced) {
  EXPECT_EQ(taskWithStr(list({"/bin/echo", "'a b'", "\"c d\"", "'ef'"}), std::nullopt), "a b c d ef");
  EXPECT_EQ(lastLine(), "/bin/echo 'a b' 'c d' 'ef'");
}

TEST_F(TaskWithStrTest, RedirectionsPassUnquoted) {
  EXPECT_EQ(taskWithStr(list({"/bin/ls", "/absent-item", "2>&1", "|", "/bin/grep", "-c", "absent"}), std::nullopt),
            "1");
  EXPECT_EQ(lastLine(), "/bin/ls /absent-item 2>&1 | /bin/grep -c absent");
  const std::string out = file("out.txt");
  EXPECT_FALSE(taskWithStr(list({"/bin/echo", "x", ">", out}), std::nullopt));
  EXPECT_EQ(testing::readFile(out), "x\n");
  EXPECT_EQ(taskWithStr(list({"/bin/cat", "<", out}), std::nullopt), "x");
}

TEST_F(TaskWithStrTest, UnsafeElementThatNamesAFileBecomesALink) {
  const std::string path = write("a movie.txt", "content");
  EXPECT_EQ(taskWithStr(list({"/bin/cat", path}), std::nullopt), "content");
  EXPECT_EQ(lastLine(), "/bin/cat " + temporaryFolder() + "/taskWithStr/arg1");
  EXPECT_FALSE(fs::exists(fs::symlink_status(temporaryFolder() + "/taskWithStr")));
  taskWithStr(list({"/bin/readlink", path}), std::nullopt);
  EXPECT_EQ(taskWithStr(list({"/bin/readlink", path}), std::nullopt), path);
}

TEST_F(TaskWithStrTest, ListingOfAFolderNamedWithABlank) {
  write("my folder/inside.txt", "");
  EXPECT_EQ(taskWithStr(list({"/bin/ls", file("my folder") + "/"}), std::nullopt), "inside.txt");
}

TEST_F(TaskWithStrTest, TemporaryFolderNamedWithABlankIsQuoted) {
  tmpFolderSet(file("my tmp"));
  const std::string path = write("a movie.txt", "content");
  EXPECT_EQ(taskWithStr(list({"/bin/cat", path}), std::nullopt), "content");
  EXPECT_EQ(lastLine(), "/bin/cat '" + file("my tmp") + "/taskWithStr/arg1'");
}

TEST_F(TaskWithStrTest, WorkFolderThatCannotBeMadeIsNothing) {
  tmpFolderSet(write("occupied", "a file") + "/tmp");
  const std::string path = write("a movie.txt", "content");
  EXPECT_FALSE(taskWithStr(list({"/bin/cat", path}), std::nullopt));
}

TEST_F(TaskWithStrTest, ReadyTextRunsUnchanged) {
  EXPECT_EQ(taskWithStr("echo  a   'b  c' | tr a-z A-Z", std::nullopt), "A B  C");
  EXPECT_EQ(lastLine(), "echo  a   'b  c' | tr a-z A-Z");
  EXPECT_EQ(runner_->commands_.back().program, "/bin/sh");
}

TEST_F(TaskWithStrTest, ToolFolderOfTheBundleIsReplacedByTheRelocatedOne) {
  const platform::Installed<platform::Bundle> bundle(platform::mainBundle(),
                                                     platform::folderBundle({"Studio", "/Studio/Resources", {}}));
  const std::string line = "echo /Studio/Resources/tools/a /Studio/Resources/tools/b";
  EXPECT_EQ(taskWithStr(line, std::nullopt), "/Studio/Resources/tools/a /Studio/Resources/tools/b");
  fs::create_directories(temporaryFolder() + "/app.app");
  const std::string tools = temporaryFolder() + "/app.app/Contents/Resources/tools";
  EXPECT_EQ(taskWithStr(line, std::nullopt), tools + "/a " + tools + "/b");
}

TEST_F(TaskWithStrTest, CurrentFolderWhereItExists) {
  const std::string folder = fs::canonical(scratch_.path());
  EXPECT_EQ(taskWithStr("/bin/pwd", folder), folder);
  EXPECT_TRUE(log_.has("cd : " + folder));
  log_.clear();
  const std::string here = fs::current_path();
  EXPECT_EQ(taskWithStr("/bin/pwd", ""), here);
  EXPECT_EQ(taskWithStr("/bin/pwd", file("absent")), here);
  EXPECT_FALSE(log_.hasContaining("cd : "));
}

TEST_F(TaskWithStrTest, OneTrailingLineEndIsRemoved) {
  EXPECT_EQ(taskWithStr("printf 'a\\n\\n'", std::nullopt), "a\n");
  EXPECT_EQ(taskWithStr("printf 'a'", std::nullopt), "a");
}

TEST_F(TaskWithStrTest, EmptyResultIsNothingWithALine) {
  EXPECT_FALSE(taskWithStr("true", std::nullopt));
  EXPECT_FALSE(taskWithStr("echo", std::nullopt));
  EXPECT_EQ(log_.count("str                 :-/ ''"), 2);
  EXPECT_FALSE(taskWithStr(List{}, std::nullopt));
  EXPECT_FALSE(taskWithStr(std::nullopt, std::nullopt));
}

TEST_F(TaskWithStrTest, OutputThatIsNotUtf8IsNothing) {
  EXPECT_FALSE(taskWithStr("printf '\\377'", std::nullopt));
  EXPECT_FALSE(log_.hasContaining("str                 :-/"));
}

TEST_F(TaskWithStrTest, OutputBeyondAPipesBufferIsCompleteWithALine) {
  const auto text = taskWithStr("seq 50000", std::nullopt);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), 288'893U);
  EXPECT_TRUE(log_.has("taskWithStr         :-/ 288894 bytes of output, a pipe holds 65536"));
  log_.clear();
  taskWithStr("seq 5000", std::nullopt);
  EXPECT_FALSE(log_.hasContaining("a pipe holds"));
}

TEST_F(TaskWithStrTest, ErrorsAreNotPartOfTheResult) {
  ::testing::internal::CaptureStderr();
  const auto text = taskWithStr("echo a; echo b 1>&2", std::nullopt);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "b\n");
  EXPECT_EQ(text, "a");
}

TEST_F(TaskWithStrTest, FormerWorkFolderIsRemoved) {
  write("tmp/taskWithStr/arg7", "old");
  EXPECT_EQ(taskWithStr("echo a", std::nullopt), "a");
  EXPECT_FALSE(fs::exists(file("tmp/taskWithStr")));
}

TEST_F(TaskWithStrTest, TextThatIsSafeOnlyAtTheSecondQuestionIsMissing) {
  /// An echo that is right every second time.
  struct Moody : platform::ForwardingProcessRunner {
    using ForwardingProcessRunner::ForwardingProcessRunner;
    platform::ProcessOutput run(const Command& command) override {
      if (command.arguments.back() == "/bin/echo moody 2>&1" && ++asked % 2 == 1)
        return {std::string("other\n"), 65536};
      return ForwardingProcessRunner::run(command);
    }
    int asked = 0;
  };
  const platform::Installed<platform::ProcessRunner> moody(platform::processRunner(), std::make_shared<Moody>(runner_));
  taskWithStr(list({"moody"}), std::nullopt);
  EXPECT_EQ(lastLine(), "(null)");
}

TEST_F(TaskWithStrTest, DeveloperMachineSeesTheCommandLine) {
  makeDeveloperMachine();
  taskWithStr(list({"/bin/echo", "a b"}), std::nullopt);
  EXPECT_TRUE(log_.has("taskWithStr > args  : /bin/echo 'a b'"));
}

TEST_F(TaskWithStrVerboseTest, VerboseLines) {
  taskWithStr("echo a", std::nullopt);
  EXPECT_TRUE(log_.has("task release"));
  EXPECT_TRUE(log_.has("str                 :   'a\n'"));
}

// ---- isStringSafeForTask --------------------------------------------------------------------------------------------

TEST_F(StringSafetyTest, OrdinaryTextsAreSafe) {
  for (const char* text : {"/bin/ls", "a-b_c.mov", "é", "-f", "a=b", "100%", ""}) {
    EXPECT_TRUE(isStringSafeForTask(text)) << text;
  }
}

TEST_F(StringSafetyTest, SingleOperatorsAreSafeWithoutAShell) {
  for (const char* text : {"|", "&", ">", "<"}) EXPECT_TRUE(isStringSafeForTask(text)) << text;
  EXPECT_TRUE(runner_->commands_.empty());
}

TEST_F(StringSafetyTest, WhatTheShellChangesIsNotSafe) {
  for (const char* text : {"$HOME", "a;b", "*", "it's", "$(echo", "a|b", "~", "-n", "a>b", "(", "#", "`"}) {
    EXPECT_FALSE(isStringSafeForTask(text)) << text;
  }
  EXPECT_FALSE(isStringSafeForTask(std::nullopt));
  fs::remove(fs::current_path() / "b");  // what "a>b" made
}

TEST_F(StringSafetyTest, BlankTabAndLineEndAreNeverSafe) {
  for (const char* text : {"a b", "a\tb", "a\nb", " ", "a\\ b", "a\r"}) EXPECT_FALSE(isStringSafeForTask(text)) << text;
  EXPECT_TRUE(runner_->commands_.empty());
}

TEST_F(StringSafetyTest, BackslashesThatTheShellTakesAwayAreSafe) {
  EXPECT_TRUE(isStringSafeForTask("a\\&b"));
  EXPECT_TRUE(isStringSafeForTask("it\\'s"));
}

TEST_F(StringSafetyTest, TextInQuotesIsUnsafe) {
  EXPECT_FALSE(isStringSafeForTask("'abc'"));
  EXPECT_FALSE(isStringSafeForTask("\"abc\""));
}

TEST_F(StringSafetyTest, EnvironmentHasOnlyTheLanguageSet) {
  isStringSafeForTask("a");
  const auto& environment = runner_->commands_.at(0).environment;
  EXPECT_EQ(environment.at("LC_CTYPE"), "en_US.UTF-8");
  EXPECT_FALSE(environment.contains("FONTCONFIG_PATH"));
}

TEST_F(StringSafetyVerboseTest, UnsafeTextIsShownWithItsEcho) {
  isStringSafeForTask("$HOME");
  EXPECT_TRUE(log_.has("isStringSafe4TaskWit:-( '$HOME' > '" + std::string(std::getenv("HOME")) + "'"));
  isStringSafeForTask("'abc'");
  EXPECT_TRUE(log_.has("isStringSafe4TaskWit:-( ''abc'' > 'b'"));
}

// ---- taskLaunchNoWait -----------------------------------------------------------------------------------------------

TEST_F(LaunchTest, ShellIsStartedAndNotWaitedFor) {
  const std::string mark = file("mark");
  // The command cannot end before the call has returned: it waits for the file that is removed afterwards.
  const std::string held = write("held", "");
  const std::string line = "while [ -e '" + held + "' ]; do sleep 0.01; done; echo done > '" + mark + ".new'; mv '" +
                           mark + ".new' '" + mark + "'";
  taskLaunchNoWait(line);
  EXPECT_FALSE(fs::exists(mark));
  fs::remove(held);
  for (int i = 0; i < 1000 && !fs::exists(mark); ++i) ::usleep(20'000);
  EXPECT_EQ(testing::readFile(mark), "done\n");
  EXPECT_TRUE(log_.has("argsStr : " + line));
  EXPECT_EQ(runner_->commands_.at(0).environment.at("LC_CTYPE"), "en_US.UTF-8");
  taskLaunchNoWait(std::nullopt);
  EXPECT_EQ(runner_->commands_.size(), 1U);
}

// ---- readContentsTxtViaCat ------------------------------------------------------------------------------------------

TEST_F(ViaCatTest, TextInADetectedEncodingIsReturned) {
  EXPECT_EQ(readContentsTxtViaCat(write("a.txt", "été\n")), "été\n");
  EXPECT_EQ(readContentsTxtViaCat(write("b.txt", std::string("\xFF\xFE\xE9\0", 4))), "é");
  EXPECT_FALSE(readContentsTxtViaCat(std::nullopt));
  EXPECT_TRUE(runner_->commands_.empty());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(ViaCatTest, FileThatIsRefusedIsCopiedWithCat) {
  // Only plain characters after a mark that promises others: the detection refuses it, and so does strict ASCII.
  const std::string path = write("odd \"$name`.txt", "\xFF\xFD\x81\x8D");
  EXPECT_FALSE(readContentsTxtViaCat(path));
  EXPECT_TRUE(log_.has("readConten… encoding:-/ 1 (ascii)"));
  EXPECT_TRUE(log_.has("Error reading file at path " + path + "\nthe text encoding is unknown: '" + path + "'"));
  EXPECT_EQ(testing::readFile(path + ".txt"), "\xFF\xFD\x81\x8D");
}

TEST_F(ViaCatTest, CopyInAsciiIsReturnedAndStaysBesideTheFile) {
  /// A cat that makes plain text of what it reads.
  struct PlainCat : platform::ForwardingProcessRunner {
    using ForwardingProcessRunner::ForwardingProcessRunner;
    platform::ProcessOutput run(const Command& command) override {
      Command plain = command;
      plain.arguments.back() += "; echo plain > " + copy;
      return ForwardingProcessRunner::run(plain);
    }
    std::string copy;
  };
  const std::string path = write("strings", "\xFF\xFD\x81\x8D");
  const auto cat = std::make_shared<PlainCat>(runner_);
  cat->copy = path + ".txt";
  const platform::Installed<platform::ProcessRunner> installed(platform::processRunner(), cat);
  EXPECT_EQ(readContentsTxtViaCat(path), "plain\n");
  EXPECT_TRUE(log_.has("mv New already exist:-( '" + path + "'"));
  EXPECT_EQ(testing::readFile(path), "\xFF\xFD\x81\x8D");
  EXPECT_EQ(testing::readFile(path + ".txt"), "plain\n");
}

TEST_F(ViaCatVerboseTest, VerboseLines) {
  readContentsTxtViaCat(write("a.txt", "a"));
  EXPECT_TRUE(log_.has("readConten… encoding: 4"));
  log_.clear();
  readContentsTxtViaCat(write("b", "\xFF\xFD\x81\x8D"));
  EXPECT_TRUE(log_.has("readConten… encoding: 9223372036854775807"));
}

}  // namespace
}  // namespace vistrelle
