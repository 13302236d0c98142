#include "vistrelle/system/commands.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/process/process.h"
#include "vistrelle/platform/text/encoding.h"
#include "vistrelle/system/preferences.h"
#include "vistrelle/system/shell_words.h"
#include "vistrelle/system/text_reading.h"
#include "vistrelle/system/tmp_folder.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::appendingPathComponent;
using platform::Command;
using platform::Dictionary;
using platform::Environment;
using platform::List;

using Segment = std::vector<std::string>;

/// Enough for the shell itself; what taskLaunchNoWait and the echo get.
Environment shellEnvironment() {
  Environment environment = platform::currentEnvironment();
  environment["LC_CTYPE"] = "en_US.UTF-8";
  return environment;
}

Environment childEnvironment() {
  Environment environment = shellEnvironment();
  // A bundle without a name makes these paths with the text of an absent object.
  const std::string name = platform::mainBundle().get()->name().value_or("(null)");
  const std::string support = platform::expandingTilde("~/Library/Application Support/" + name);
  environment["FONTCONFIG_FILE"] = appendingPathComponent(support, "fonts.conf");
  environment["FONTCONFIG_PATH"] = appendingPathComponent(tmpFolderPath(), "app.app") + "/Contents/Resources/fonts";
  return environment;
}

Command shellCommand(const std::string& line, Environment environment) {
  return {"/bin/sh", {"-c", line}, std::move(environment), {}};
}

/// UTF-8, else ASCII; and bytes that are not the one are not the other.
OptionalText decodeOutput(const std::optional<std::string>& bytes) {
  if (!bytes || !platform::isValidUtf8(*bytes)) return std::nullopt;
  return *bytes;
}

std::string commandWord(const std::string& word) {
  return word.find("://") == std::string::npos ? platform::expandingTilde(word) : word;
}

/// The words between the separators; nothing when a separator closes an empty segment.
std::optional<std::vector<Segment>> splitPipeline(const std::vector<std::string>& words) {
  std::vector<Segment> segments(1);
  for (const std::string& word : words) {
    if (word != "|") {
      segments.back().push_back(commandWord(word));
    } else if (segments.back().empty()) {
      return std::nullopt;
    } else {
      segments.emplace_back();
    }
  }
  return segments;
}

Value asValue(const Segment& words) {
  return List(words.begin(), words.end());
}

std::string describe(const std::vector<Segment>& segments) {
  List lists;
  for (const Segment& segment : segments) lists.push_back(asValue(segment));
  return platform::description(Value(std::move(lists)));
}

std::string describe(const Environment& environment) {
  return platform::description(Value(Dictionary(environment.begin(), environment.end())));
}

/// The commands of a pipeline; nothing, with a log line, when a tool is missing.
std::optional<std::vector<Command>> pipelineCommands(const std::vector<Segment>& segments,
                                                     const Environment& environment) {
  std::vector<Command> commands;
  for (const Segment& segment : segments) {
    // Only a list that ends with a separator has one.
    if (segment.empty()) continue;
    if (!testPresenceCocoa(segment.front())) {
      log("taskArray      :-( tool !present '{}'", segment.front());
      return std::nullopt;
    }
    Segment arguments(segment.begin() + 1, segment.end());
    if (isDeveloperMachine()) log("taskArray           : ma {}", platform::description(arguments));
    commands.push_back({segment.front(), std::move(arguments), environment, {}});
  }
  return commands;
}

std::string taskWithStrFolder() {
  return appendingPathComponent(tmpFolderPath(), "taskWithStr");
}

/// Every occurrence of the bundle's tool folder replaced by the one of the relocated bundle, where that exists.
std::string withRelocatedTools(const std::string& line) {
  const std::string application = appendingPathComponent(tmpFolderPath(), "app.app");
  if (!isDirCocoa(application)) return line;
  const std::string original = appendingPathComponent(platform::mainBundle().get()->resourcePath(), "tools");
  std::string relocated = application;
  for (const char* component : {"Contents", "Resources", "tools"}) {
    relocated = appendingPathComponent(relocated, component);
  }
  return findAndReplace(line, original, relocated, false).value_or(line);
}

std::string withoutTrailingLineEnd(std::string text) {
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

OptionalText runShellLine(const std::string& line, const OptionalText& folder) {
  Command command = shellCommand(line, childEnvironment());
  if (folder && !folder->empty() && testPresenceCocoa(*folder)) {
    command.folder = platform::expandingTilde(*folder);
    log("cd : {}", *folder);
  }
  const auto output = platform::processRunner().get()->run(command);
  if (output.bytes && output.bytes->size() > output.pipeCapacity) {
    log("taskWithStr         :-/ {} bytes of output, a pipe holds {}", output.bytes->size(), output.pipeCapacity);
  }
  return decodeOutput(output.bytes);
}

}  // namespace

OptionalText taskArray(const std::optional<std::vector<std::string>>& words) {
  log("taskArray           - begin");
  if (!words || words->empty() || !testPresenceCocoa(words->front())) return std::nullopt;
  logVerbose("taskArray           # 1");
  const auto segments = splitPipeline(*words);
  if (!segments) return std::nullopt;
  if (isDeveloperMachine()) log("separatedArgsByTask…: {}", describe(*segments));
  const Environment environment = childEnvironment();
  if (isVerbose()) log("env post            : {}", describe(environment));
  const auto commands = pipelineCommands(*segments, environment);
  if (!commands) return std::nullopt;
  const auto text = decodeOutput(platform::processRunner().get()->runPipeline(*commands).bytes);
  constexpr std::array<std::string_view, 4> kBlank = {"", " ", "\n", " \n"};
  if (!text || std::find(kBlank.begin(), kBlank.end(), *text) != kBlank.end()) return std::nullopt;
  return text;
}

OptionalText taskWithStr(const OptionalValue& command, const OptionalText& folder) {
  if (!command) return std::nullopt;
  std::string line;
  if (const auto* text = command->get<std::string>()) line = *text;
  const std::string workFolder = taskWithStrFolder();
  rmCocoa(workFolder);
  if (const auto* list = command->get<List>()) {
    auto made = shellLine(*list, workFolder);
    if (!made) return std::nullopt;
    line = std::move(*made);
  }
  if (isDeveloperMachine()) log("taskWithStr > args  : {}", line);
  OptionalText text = runShellLine(withRelocatedTools(line), folder);
  logVerbose("task release");
  if (text) {
    if (isVerbose()) log("str                 :   '{}'", *text);
    text = withoutTrailingLineEnd(std::move(*text));
    if (text->empty()) {
      log("str                 :-/ '{}'", *text);
      text.reset();
    }
  }
  rmCocoa(workFolder);
  return text;
}

void taskLaunchNoWait(const OptionalText& command) {
  if (!command) return;
  logVerbose("argsStr : {}", *command);
  platform::processRunner().get()->launch(shellCommand(*command, shellEnvironment()));
}

bool isStringSafeForTask(const OptionalText& text) {
  if (!text) return false;
  if (*text == "|" || *text == "&" || *text == ">" || *text == "<") return true;
  // Unquoted, the shell splits at these, although its echo looks the same.
  if (text->find_first_of(" \t\n\r") != std::string::npos) return false;
  const auto output =
      platform::processRunner().get()->run(shellCommand("/bin/echo " + *text + " 2>&1", shellEnvironment()));
  const auto echoed = decodeOutput(output.bytes);
  if (!echoed) return false;
  std::string compared = withoutTrailingLineEnd(*echoed);
  // Intended: the quotes are taken off the echo, not off the text, so that a text in quotes is never safe.
  if (isWrappedIn(*text, '\'') || isWrappedIn(*text, '"')) compared = withoutEndCharacters(compared);
  if (compared == *text) return true;
  std::string withoutBackslashes = *text;
  std::erase(withoutBackslashes, '\\');
  if (compared == withoutBackslashes) return true;
  logVerbose("isStringSafe4TaskWit:-( '{}' > '{}'", *text, compared);
  return false;
}

OptionalText readContentsTxtViaCat(const OptionalText& path) {
  if (!path) return std::nullopt;
  const std::string full = platform::expandingTilde(*path);
  const TextFile detected = readDetecting(full);
  logVerbose("readConten… encoding: {}", detected.encoding);
  if (detected.encoding == platform::kNoEncoding) {
    log("readConten… encoding:-/ {} (ascii)", platform::kAsciiEncoding);
  }
  const TextFile file = readDetecting(full);
  if (file.text) return file.text;
  log("Error reading file at path {}\n{}", *path, file.error);
  const std::string copy = platform::appendingPathExtension(full, "txt");
  const std::string line = "/bin/cat " + inDoubleQuotes(full) + " > " + inDoubleQuotes(copy);
  platform::processRunner().get()->run(shellCommand(line, shellEnvironment()));
  const TextFile plain = readInEncoding(copy, platform::kAsciiEncoding);
  if (!plain.text) return std::nullopt;
  // Intended: "-y" is not the overwrite option "y", so the file at the path stays and so does the copy.
  mv(copy, full, "-y");
  if (isVerbose()) log("str                 : {}", *plain.text);
  return plain.text;
}

}  // namespace vistrelle
