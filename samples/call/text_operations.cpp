#include "registry.h"
#include "vistrelle/cli/shortcuts.h"
#include "vistrelle/text/lists.h"
#include "vistrelle/text/numbers.h"
#include "vistrelle/text/text.h"
#include "vistrelle/text/titles.h"

namespace call {

using namespace vistrelle;

namespace {

using Words = std::optional<platform::List>;

/// {"text": "...", "runs": [{"start": 0, "length": 4, "bold": true, ...}]}, offsets in bytes.
std::optional<platform::Dictionary> styledText(const OptionalText& text) {
  const auto styled = htmlEntityDecode(text);
  if (!styled) return std::nullopt;
  platform::List runs;
  for (const StyledText::Run& run : styled->runs) {
    runs.emplace_back(platform::Dictionary{{"start", static_cast<std::int64_t>(run.start)},
                                           {"length", static_cast<std::int64_t>(run.length)},
                                           {"bold", run.bold},
                                           {"italic", run.italic},
                                           {"underlined", run.underlined}});
  }
  return platform::Dictionary{{"text", styled->text}, {"runs", std::move(runs)}};
}

void addTexts(Registry& registry) {
  registry.add("findAndReplace", &findAndReplace);
  registry.add("str2Float", &str2Float);
  registry.add("str2FloatInner", &str2FloatInner);
  registry.add("shortDescription", &shortDescription);
  registry.add("trimBlanks", &trimBlanks);
  registry.add("splitLines", &splitLines);
  registry.add("progressValueAfter", &progressValueAfter);
  registry.add("htmlEntityDecode", &styledText);
  registry.add("htmlEntityDecodeStr", &htmlEntityDecodeStr);
  registry.add("digitSum", &digitSum);
  registry.add("textOf", &textOf);
  registry.add("joinWords", [](const Words& list) { return joinWords(list); });
  registry.add("prefixOfText", &prefixOfText);
  registry.add("containsAnyOf", &containsAnyOf);
  registry.add("hexColorSwap", &hexColorSwap);
  registry.add("userNameFromHome", &userNameFromHome);
  registry.add("invertCase", &invertCase);
  registry.add("reverseText", &reverseText);
  registry.add("percentFreeName", &percentFreeName);
}

void addLists(Registry& registry) {
  registry.add("sortedTexts", &sortedTexts);
  registry.add("isFirstInOrder", &isFirstInOrder);
  registry.add("reversedList", &reversedList);
  registry.add("uniqueList", &uniqueList);
  registry.add("copyList", &copyList);
  registry.add("copyDictionary", &copyDictionary);
  registry.add("insertList", &insertList);
}

void addNumbers(Registry& registry) {
  registry.add("sizeInUnit", &sizeInUnit);
  registry.add("minutesOffsetStr", &minutesOffsetStr);
  registry.add("durationStr", &durationStr);
  registry.add("secondesStr2Int", &secondesStr2Int);
  registry.add("reduceRatio", &reduceRatio);
  registry.add("commonSubMultiple", &commonSubMultiple);
  registry.add("nbMultipleArrondi", &nbMultipleArrondi);
  registry.add("nbArrondi", &nbArrondi);
  registry.add("nbTrimmed", &nbTrimmed);
  registry.add("float2FractionStr", &float2FractionStr);
  registry.add("fractionStr2Float", &fractionStr2Float);
  registry.add("ASTID", &ASTID);
  registry.add("versionStr2Float", &versionStr2Float);
  registry.add("sortedNumbers", &sortedNumbers);
  registry.add("str2Int", &str2Int);
  registry.add("secondsToTimecodeStr", &secondsToTimecodeStr);
  registry.add("secondsListToTimecodes", &secondsListToTimecodes);
}

void addTitles(Registry& registry) {
  registry.add("pathes2Titles", &pathes2Titles);
  registry.add("trimPathStr", &trimPathStr);
  registry.add("masterName", &masterName);
  registry.add("dateCreation", &dateCreation);
  registry.add("dateCreationForTouch", &dateCreationForTouch);
  registry.add("dateCreation2Name", &dateCreation2Name);
}

void addShortcuts(Registry& registry) {
  registry.add("progressTime", &progressTime);
  registry.add("progressSteps", &progressSteps);
  registry.add("progressPourcentage", &progressPourcentage);
  registry.add("progressBatch", &progressBatch);
  registry.add("progressProcessing", &progressProcessing);
  registry.add("progressBar", &progressBar);
  registry.add("encodePercent", &encodePercent);
  registry.add("descriptionClip", &descriptionClip);
  registry.add("dateCreation2NameWithId", &dateCreation2NameWithId);
  registry.add("dateCreation2NameClip", &dateCreation2NameClip);
}

}  // namespace

void addTextOperations(Registry& registry) {
  addTexts(registry);
  addLists(registry);
  addNumbers(registry);
  addTitles(registry);
  addShortcuts(registry);
}

}  // namespace call
